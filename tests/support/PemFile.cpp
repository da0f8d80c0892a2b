#include "tests/support/PemFile.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <memory>

namespace tests {

std::vector<PemBlock> ReadPemFile(const std::filesystem::path& path) {
    const std::unique_ptr<BIO, int (*)(BIO*)> file(BIO_new_file(path.c_str(), "rb"), BIO_free);
    std::vector<PemBlock> blocks;
    char *label = nullptr, *header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
    while (file && PEM_read_bio(file.get(), &label, &header, &data, &size) == 1) {
        blocks.push_back({label, platform::Bytes(data, data + size)});
        OPENSSL_free(label);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
    ERR_clear_error();
    return blocks;
}

}  // namespace tests
