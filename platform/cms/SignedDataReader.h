#pragma once
// Finds the parts of a CMS SignedData (RFC 5652, 3 and 5.1) in a source that may be far bigger than memory: everything
// but the content is read, the content is passed on in pieces or stepped over. DER and BER, with indefinite lengths
// and content in constructed octet strings. PKCS#7 1.5 content of another type than OCTET STRING is read as that
// format means it: what is signed are its contents octets.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/formats/ByteSource.h"
#include "platform/formats/Der.h"

namespace platform::cms {

// Where the content lies, so that it can be walked again.
struct ContentPlace {
    std::uint64_t offset = 0;  // of the element inside the explicit [0] of eContent
    std::uint64_t end = 0;     // behind it
    bool octetString = true;   // otherwise any element, as PKCS#7 1.5 allows
    bool constructed = false;  // an octet string in pieces
    std::uint64_t octets = 0;  // of content, all pieces together
};

// Bytes of the source.
struct SourceRange {
    std::uint64_t offset = 0, end = 0;
};

struct SignedDataMessage {
    std::uint8_t version = 0;
    std::vector<AlgorithmIdentifier> digestAlgorithms;
    Bytes encodedDigestAlgorithms;        // the contents of their SET
    std::string contentType;              // eContentType
    SourceRange encapContentInfo;         // the whole element
    std::optional<ContentPlace> content;  // absent in a detached signature
    Bytes certificates;                   // the contents of certificates [0]; empty if absent
    std::optional<SourceRange> crls;      // the whole of crls [1], which may be large and is rarely asked for
    Bytes signerInfos;                    // the contents of the SET
    std::uint64_t trailing = 0;           // padding behind the message: NUL bytes, blanks, line ends
};

enum class ReadOutcome {
    ok,
    malformed,      // no DER or BER of this structure, or something other than padding stands behind it
    notSignedData,  // a ContentInfo of another type
    readFault,      // the source cannot be read, or has shrunk (last error set)
    stopped,        // the receiver of the content gave up
    tooLarge,       // certificates or signers over the limit
};

// Gets the content while the message is read, in order. Start is called once, also for a message without content.
class ContentReceiver {
  public:
    virtual ~ContentReceiver() = default;
    // With digestAlgorithms and contentType read. Answers whether the content is wanted: else it is stepped over.
    virtual bool Start(const SignedDataMessage& head) = 0;
    // False ends the reading with ReadOutcome::stopped.
    virtual bool Take(ByteView piece) = 0;
};

// The certificates and the signers of a message are held in memory, up to this many bytes each.
constexpr std::uint64_t kMostMetadata = std::uint64_t{16} << 20;

ReadOutcome ReadSignedData(ByteSource& source, ContentReceiver& receiver, SignedDataMessage& message);

// A ContentInfo of any type (RFC 5652, 3), which is walked over and not looked into.
struct ContentInfoHead {
    std::string type;
    std::optional<ContentPlace> data;  // of type data: where its octets lie
};
ReadOutcome ReadContentInfo(ByteSource& source, ContentInfoHead& head);

// The contents of the element that takes up the range. Empty if it is over kMostMetadata or cannot be read.
std::optional<Bytes> ReadContents(ByteSource& source, const SourceRange& element);

// Passes the content of a message that was read on again.
ReadOutcome ReadContentAgain(ByteSource& source, const ContentPlace& place, const std::function<bool(ByteView)>& take);

}  // namespace platform::cms
