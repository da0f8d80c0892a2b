#include "toolkit/cms/SignedDataFrame.h"

#include "platform/formats/DerWriter.h"
#include "toolkit/cms/Message.h"

namespace toolkit::cms {

using platform::Bytes;
using platform::DerHeader;
using platform::DerHeaderSize;
using platform::DerWriter;

namespace {

constexpr std::string_view kSignedData = "1.2.840.113549.1.7.2";

}  // namespace

Bytes SignedDataFrame::EncapContentInfoHead() const {
    DerWriter type;
    type.Oid(oid::kData);
    DerWriter out;
    if (!contentSize_) {
        out.Value(platform::tag::kSequence, type.View());
        return out.Take();
    }
    const std::uint64_t octetString = DerHeaderSize(*contentSize_) + *contentSize_;
    const std::uint64_t explicitTag = DerHeaderSize(octetString) + octetString;
    out.Raw(DerHeader(platform::tag::kSequence, type.View().size() + explicitTag));
    out.Raw(type.View());
    out.Raw(DerHeader(platform::tag::ContextConstructed(0), octetString));
    out.Raw(DerHeader(platform::tag::kOctetString, *contentSize_));
    return out.Take();
}

Bytes SignedDataFrame::Head(std::uint64_t tailSize) const {
    DerWriter fields;
    fields.Integer(1);
    fields.Set([&] { fields.AlgorithmWithNull(platform::OidOf(hash_)); });
    fields.Raw(EncapContentInfoHead());

    DerWriter type;
    type.Oid(kSignedData);
    const std::uint64_t signedData = fields.View().size() + contentSize_.value_or(0) + tailSize;
    const std::uint64_t explicitTag = DerHeaderSize(signedData) + signedData;
    const std::uint64_t contentInfo = type.View().size() + DerHeaderSize(explicitTag) + explicitTag;

    DerWriter out;
    out.Raw(DerHeader(platform::tag::kSequence, contentInfo));
    out.Raw(type.View());
    out.Raw(DerHeader(platform::tag::ContextConstructed(0), explicitTag));
    out.Raw(DerHeader(platform::tag::kSequence, signedData));
    out.Raw(fields.View());
    return out.Take();
}

Bytes SignedDataFrame::Tail(const std::vector<platform::CertificateContext>& certificates,
                            platform::ByteView signerInfo) {
    DerWriter out;
    out.Nested(platform::tag::ContextConstructed(0), [&] {
        for (const auto& certificate : certificates)
            out.Raw(certificate.Encoded());
    });
    out.Set([&] { out.Raw(signerInfo); });
    return out.Take();
}

}  // namespace toolkit::cms
