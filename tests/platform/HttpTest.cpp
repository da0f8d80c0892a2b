#include "platform/Http.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/support/HttpServer.h"
#include "tests/support/LastError.h"
#include "tests/support/Profile.h"

namespace {

using namespace platform;
using namespace std::string_literals;
using namespace std::chrono_literals;
using tests::HttpAnswer;

// Gives the same answer to everybody.
struct Server : tests::HttpServer {
    explicit Server(const HttpAnswer& answer) : HttpServer([answer](const tests::HttpRequest&) { return answer; }) {}
};

class Http : public testing::Test {
  protected:
    // The environment of whoever runs the tests must not send them through a proxy.
    Http() { profile_.Set("all_proxy", std::nullopt); }
    static HttpRequest Get(const std::string& url) {
        HttpRequest request;
        request.url = url;
        request.connectTimeout = request.totalTimeout = 10s;
        return request;
    }
    static HttpResponse Send(const HttpRequest& request) {
        const auto response = HttpSend(request);
        EXPECT_TRUE(response) << request.url;
        return response.value_or(HttpResponse{});
    }
    static void ExpectFailure(const HttpRequest& request, ErrorCode code) {
        HttpFailure failure;
        EXPECT_FAILS(HttpSend(request, &failure), code) << request.url << ": " << failure.reason;
        EXPECT_NE(failure.reason, "");
        EXPECT_EQ(failure.timedOut, code == ERROR_INTERNET_TIMEOUT);
    }
    static void ExpectFailureAt(const HttpAnswer& answer, ErrorCode code) {
        ExpectFailure(Get(Server(answer).Url()), code);
    }
    tests::Profile profile_;
};

TEST_F(Http, APostCarriesItsBytesAndTheAnswerComesBackWhole) {
    const Server server({.contentType = "application/timestamp-reply", .body = "\0\xFF binary"s});
    HttpRequest request = Get(server.Url("/tsa?x=1"));
    request.body = Bytes(70'000);
    request.body->back() = 'z';
    request.contentType = "application/timestamp-query";
    request.accept = "application/timestamp-reply";
    const auto response = Send(request);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.contentType, "application/timestamp-reply");
    EXPECT_EQ(AsText(response.body), "\0\xFF binary"s);
    const auto seen = server.Requests().at(0);
    EXPECT_EQ(seen.method + " " + seen.target, "POST /tsa?x=1");
    EXPECT_EQ(seen.headers.at("content-type"), "application/timestamp-query");
    EXPECT_EQ(seen.headers.at("accept"), "application/timestamp-reply");
    EXPECT_EQ(seen.body, AsText(*request.body));
    EXPECT_FALSE(seen.headers.contains("authorization"));
}

TEST_F(Http, AnAnswerOfAnyStatusIsAnAnswer) {
    for (const int status : {404, 500, 401}) {
        const auto response = Send(Get(Server({.status = status, .body = "why"}).Url()));
        EXPECT_EQ(response.status, status);
        EXPECT_EQ(AsText(response.body), "why");
    }
}

TEST_F(Http, CredentialsGoOutAtOnceButNeverToAnotherServer) {
    const Server other({.body = "other"});
    const tests::HttpServer server([&](const tests::HttpRequest& request) {
        return HttpAnswer::Redirect(request.target == "/here" ? "/again" : other.Url("/there"));
    });
    HttpRequest request = Get(server.Url("/here"));
    request.basic = {"иван", Secret("па:рола")};
    EXPECT_EQ(AsText(Send(request).body), "other");
    ASSERT_EQ(server.Requests().size(), 2u);
    for (const auto& seen : server.Requests())
        EXPECT_EQ(seen.Credentials(), "иван:па:рола");
    EXPECT_FALSE(other.Requests().at(0).headers.contains("authorization"));
}

TEST_F(Http, RedirectsKeepThePostAreCountedAndStayWithinTheWeb) {
    const Server target({.body = "done"}), moved(HttpAnswer::Redirect(target.Url("/new"), 301));
    HttpRequest request = Get(moved.Url());
    request.body = CopyOf(AsBytes("query"));
    Send(request);
    EXPECT_EQ(target.Requests().at(0).method, "POST");
    EXPECT_EQ(target.Requests().at(0).body, "query");
    request.followRedirects = false;
    EXPECT_EQ(Send(request).status, 301);

    const Server loop(HttpAnswer::Redirect("/"));
    ExpectFailure(Get(loop.Url()), ERROR_HTTP_REDIRECT_FAILED);
    EXPECT_EQ(loop.Requests().size(), 6u);
    ExpectFailureAt(HttpAnswer::Redirect("file:///etc/passwd"), ERROR_HTTP_REDIRECT_FAILED);
}

TEST_F(Http, AnAnswerOverTheLimitIsRefusedWhileItIsRead) {
    const Server endless({.endless = true}), exact({.body = std::string(1000, 'x')});
    HttpRequest request = Get(endless.Url());
    request.sizeLimit = 100'000;
    ExpectFailure(request, ERROR_MORE_DATA);
    request = Get(exact.Url());
    request.sizeLimit = 1000;
    Send(request);
    request.sizeLimit = 999;
    ExpectFailure(request, ERROR_MORE_DATA);
}

TEST_F(Http, ASilentServerAndABrokenAnswerAreTold) {
    const Server silent({.delay = 20s}), noHttp({.raw = "SSH-2.0-OpenSSH\r\n"});
    HttpRequest request = Get(silent.Url());
    request.totalTimeout = 1s;
    const auto start = std::chrono::steady_clock::now();
    ExpectFailure(request, ERROR_INTERNET_TIMEOUT);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);

    ExpectFailureAt({.body = "half", .claimedLength = 100}, ERROR_INTERNET_CONNECTION_ABORTED);
    ExpectFailure(Get(noHttp.Url()), ERROR_INTERNET_CONNECTION_ABORTED);
    ExpectFailure(Get("https" + noHttp.Url().substr(4)), ERROR_INTERNET_SECURE_FAILURE);
    const std::string gone = tests::HttpServer(nullptr).Url();
    ExpectFailure(Get(gone), ERROR_INTERNET_CANNOT_CONNECT);
}

TEST_F(Http, OnlyAddressesOfTheWebAreAsked) {
    const auto file = profile_.Write("secret.txt", "x");
    for (const std::string& url :
         {"file://" + file.string(), "ftp://127.0.0.1/"s, "127.0.0.1/"s, ""s, "http:/x"s, "http://127.0.0.1/a b"s,
          "http://127.0.0.1/\r\nX-Evil: 1"s, "http://"s, "http://127.0.0.1\0.bg/"s})
        ExpectFailure(Get(url), ERROR_INTERNET_INVALID_URL);
}

TEST_F(Http, TheProxyOfTheEnvironmentIsUsed) {
    const Server proxy({.body = "by proxy"});
    profile_.Set("http_proxy", proxy.Url());
    EXPECT_EQ(AsText(Send(Get("http://norvik.invalid/crl")).body), "by proxy");
    EXPECT_EQ(proxy.Requests().at(0).target, "http://norvik.invalid/crl");
}

TEST(HttpLibraryDeathTest, IsNotLoadedBeforeTheFirstRequest) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";  // a fresh process, in which no request was made
    EXPECT_EXIT(_exit(tests::ReadFile("/proc/self/maps").find("libcurl") == std::string::npos ? 0 : 1),
                testing::ExitedWithCode(0), "");
}

}  // namespace
