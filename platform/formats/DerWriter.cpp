#include "platform/formats/DerWriter.h"

#include <algorithm>

#include "platform/formats/Oid.h"

namespace platform {

namespace {

std::size_t OctetsOf(std::uint64_t number) {
    std::size_t octets = 1;
    while (octets < 8 && number >> (8 * octets) != 0)
        ++octets;
    return octets;
}

}  // namespace

std::size_t DerHeaderSize(std::uint64_t contentsSize) {
    return contentsSize < 0x80 ? 2 : 2 + OctetsOf(contentsSize);
}

Bytes DerHeader(std::uint8_t tag, std::uint64_t contentsSize) {
    if (contentsSize < 0x80) return {tag, static_cast<std::uint8_t>(contentsSize)};
    const std::size_t octets = OctetsOf(contentsSize);
    Bytes header{tag, static_cast<std::uint8_t>(0x80 | octets)};
    for (std::size_t left = octets; left > 0; --left) {
        header.push_back(static_cast<std::uint8_t>(contentsSize >> (8 * (left - 1))));
    }
    return header;
}

DerWriter& DerWriter::Raw(ByteView encoded) {
    bytes_.insert(bytes_.end(), encoded.begin(), encoded.end());
    return *this;
}

DerWriter& DerWriter::Value(std::uint8_t tag, ByteView contents) {
    Raw(DerHeader(tag, contents.size()));
    return Raw(contents);
}

DerWriter& DerWriter::Text(std::uint8_t tag, std::string_view contents) {
    return Value(tag, AsBytes(contents));
}

DerWriter& DerWriter::Oid(std::string_view dotted) {
    const auto contents = OidFromText(dotted);
    if (!contents) {
        valid_ = false;
        return *this;
    }
    return Value(tag::kOid, *contents);
}

DerWriter& DerWriter::Null() {
    return Value(tag::kNull, {});
}

DerWriter& DerWriter::Boolean(bool value) {
    const std::uint8_t octet = value ? 0xFF : 0x00;
    return Value(tag::kBoolean, {&octet, 1});
}

DerWriter& DerWriter::Integer(std::uint64_t value) {
    std::uint8_t octets[8];
    for (std::size_t i = 0; i < 8; ++i)
        octets[i] = static_cast<std::uint8_t>(value >> (56 - 8 * i));
    return UnsignedInteger(octets);
}

DerWriter& DerWriter::UnsignedInteger(ByteView magnitude) {
    while (!magnitude.empty() && magnitude.front() == 0)
        magnitude = magnitude.subspan(1);
    // A first bit that is set would read as a negative number; zero is one zero octet.
    const bool pad = magnitude.empty() || (magnitude.front() & 0x80) != 0;
    Raw(DerHeader(tag::kInteger, magnitude.size() + (pad ? 1 : 0)));
    if (pad) bytes_.push_back(0);
    return Raw(magnitude);
}

DerWriter& DerWriter::AlgorithmWithNull(std::string_view oid) {
    return Sequence([&] {
        Oid(oid);
        Null();
    });
}

DerWriter& DerWriter::SetOf(std::vector<Bytes> elements) {
    // Comparing whole encodings as octet strings is the order of X.690 11.6: its padding with zeros never decides
    // between two complete encodings.
    std::sort(elements.begin(), elements.end(), [](const Bytes& a, const Bytes& b) { return AsText(a) < AsText(b); });
    return Set([&] {
        for (const auto& element : elements)
            Raw(element);
    });
}

std::size_t DerWriter::Open(std::uint8_t tag) {
    bytes_.push_back(tag);
    bytes_.push_back(0);
    return bytes_.size();
}

void DerWriter::Close(std::size_t start) {
    const std::size_t size = bytes_.size() - start;
    const Bytes header = DerHeader(bytes_[start - 2], size);
    bytes_[start - 1] = header[1];
    bytes_.insert(bytes_.begin() + static_cast<std::ptrdiff_t>(start), header.begin() + 2, header.end());
}

}  // namespace platform
