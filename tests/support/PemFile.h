#pragma once
// The labelled blocks of a PEM file with any text around them, as test vectors have it.

#include <openssl/err.h>
#include <openssl/pem.h>

#include <filesystem>

#include "platform/posix/OpenSsl.h"

namespace tests {

struct PemBlock {
    std::string label;
    platform::Bytes der;
};
// In the file's order; empty if the file holds none or cannot be read.
inline std::vector<PemBlock> ReadPemFile(const std::filesystem::path& path) {
    const platform::posix::BioPtr file(BIO_new_file(path.c_str(), "rb"));
    std::vector<PemBlock> blocks;
    char *label = nullptr, *header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
    while (file && PEM_read_bio(file.get(), &label, &header, &data, &size) == 1) {
        blocks.push_back({label, platform::Bytes(data, data + size)});
        for (void* each : {static_cast<void*>(label), static_cast<void*>(header), static_cast<void*>(data)})
            OPENSSL_free(each);
    }
    ERR_clear_error();
    return blocks;
}

}  // namespace tests
