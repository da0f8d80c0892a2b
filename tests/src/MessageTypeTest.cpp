// What kind of message a file is, and what the person is told of one that cannot be read.

#include <gtest/gtest.h>

#include "platform/Messages.h"
#include "src/Norvik.h"
#include "src/ProgressDlg.h"
#include "tests/platform/MessageFixture.h"
#include "tests/support/ScriptedInterface.h"

namespace {

class MessageType : public tests::MessageFixture {};

TEST_F(MessageType, IsToldOfBytesAndFilesAndThePersonLearnsWhichCannotBeRead) {
    MakeSigner("signer");
    const auto attached = Sign({"-nodetach"});
    EXPECT_EQ(GetMessageType(attached, 0), platform::CMSG_SIGNED);
    EXPECT_EQ(GetMessageType(Sign({}), platform::CMSG_DETACHED_FLAG, File("content")), platform::CMSG_SIGNED);
    EXPECT_EQ(GetMessageType(File("content"), 0), 0U);

    tests::Script script;
    const auto app = CNorvikApp::Start(std::make_unique<tests::ScriptedInterface>(script));
    EXPECT_EQ(GetFileMessageType(profile_.Folder() / "message", app->Interface()), platform::CMSG_SIGNED);
    EXPECT_EQ(GetFileMessageType(profile_.Folder() / "content", app->Interface()), 0U);
    EXPECT_TRUE(script.shown.empty()) << "what is no message is noted in the log alone";
    const auto missing = profile_.Folder() / "липсва.p7m";
    EXPECT_EQ(GetFileMessageType(missing, app->Interface()), 0U);
    ASSERT_EQ(script.shown.size(), 1U);
    EXPECT_EQ(script.shown[0].text, u"Следният файл не може да бъде отворен:\n" + platform::ToWide(missing.native()));
    EXPECT_EQ(script.shown[0].title, u"Грешка");
    CNorvikApp::Stop();
    const auto log = tests::ReadFile(profile_.Folder() / "tmp/Norvik/Norvik.log");
    EXPECT_NE(log.find("Failed to open: "), std::string::npos) << log;
    EXPECT_NE(log.find("0x8009310b"), std::string::npos) << log;
}

}  // namespace
