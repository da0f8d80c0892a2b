#include "tests/support/TsaServer.h"

#include <utility>

#include "tests/support/Made.h"

namespace tests {
namespace {

using platform::posix::EncodeDer;
using Mode = TsaBehaviour::Reply;

int GiveTime(TS_RESP_CTX* context, void* data, long* seconds, long* microseconds) {
    const auto& behaviour = *static_cast<const TsaBehaviour*>(data);
    const bool waiting = behaviour.reply == Mode::waiting;
    if (waiting || behaviour.reply == Mode::rejected) {
        const char* text = behaviour.statusText.empty() ? nullptr : behaviour.statusText.c_str();
        TS_RESP_CTX_set_status_info(context, waiting ? TS_STATUS_WAITING : TS_STATUS_REJECTION, text);
        if (!waiting) TS_RESP_CTX_add_failure_info(context, behaviour.failure);
        return 0;
    }
    const std::chrono::microseconds now =
        floor<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch());
    const std::int64_t moment = behaviour.genTime.value_or(now.count());
    *seconds = static_cast<long>(moment / 1'000'000);
    *microseconds = static_cast<long>(moment % 1'000'000);
    return 1;
}

ASN1_INTEGER* GiveSerial(TS_RESP_CTX*, void* data) {
    ASN1_INTEGER* serial = ASN1_INTEGER_new();
    ASN1_INTEGER_set_int64(serial, ++*static_cast<std::atomic<long>*>(data));
    return serial;
}

auto Policy() {
    return Made<ASN1_OBJECT_free>(OBJ_txt2obj("1.3.6.1.4.1.55555.1.1", 1), "policy");
}

// An authority that goes astray answers a request nobody made.
Bytes RequestToAnswer(ByteView der, Mode mode) {
    const unsigned char* cursor = der.data();
    const platform::posix::Owned<TS_REQ, TS_REQ_free> request(
        d2i_TS_REQ(nullptr, &cursor, static_cast<long>(der.size())));
    if (!request) return {der.begin(), der.end()};
    if (mode == Mode::wrongImprint) {
        TS_MSG_IMPRINT* imprint = TS_REQ_get_msg_imprint(request.get());
        ASN1_OCTET_STRING* digest = TS_MSG_IMPRINT_get_msg(imprint);
        Bytes other(ASN1_STRING_get0_data(digest), ASN1_STRING_get0_data(digest) + ASN1_STRING_length(digest));
        if (!other.empty()) other.front() ^= 0xFF;
        TS_MSG_IMPRINT_set_msg(imprint, other.data(), static_cast<int>(other.size()));
    }
    if (mode == Mode::wrongNonce) {
        const auto nonce = Made<ASN1_INTEGER_free>(ASN1_INTEGER_new(), "nonce");
        ASN1_INTEGER_set_int64(nonce.get(), 0x1234567);
        TS_REQ_set_nonce(request.get(), nonce.get());
    }
    if (mode == Mode::otherPolicy) TS_REQ_set_policy_id(request.get(), Policy().get());
    if (mode == Mode::noCertificates) TS_REQ_set_cert_req(request.get(), 0);
    if (mode != Mode::noNonce) return EncodeDer<i2d_TS_REQ>(request.get());
    // The library cannot take a nonce away, so the request is made anew.
    const auto bare = Made<TS_REQ_free>(TS_REQ_new(), "timestamp request");
    TS_REQ_set_version(bare.get(), TS_REQ_get_version(request.get()));
    TS_REQ_set_msg_imprint(bare.get(), TS_REQ_get_msg_imprint(request.get()));
    TS_REQ_set_cert_req(bare.get(), TS_REQ_get_cert_req(request.get()));
    return EncodeDer<i2d_TS_REQ>(bare.get());
}

void Prepare(TS_RESP_CTX* context, const Certificate& authority, const std::vector<Certificate>& chain,
             const TsaBehaviour& behaviour) {
    const std::unique_ptr<STACK_OF(X509), decltype([](auto* stack) { sk_X509_free(stack); })> certificates(
        sk_X509_new_null());
    for (const Certificate& each : chain)
        sk_X509_push(certificates.get(), each.Native());
    const auto policy = Policy();
    bool ready = TS_RESP_CTX_set_signer_cert(context, authority.Native()) == 1 &&
                 TS_RESP_CTX_set_signer_key(context, authority.PrivateKey().get()) == 1 &&
                 TS_RESP_CTX_set_certs(context, certificates.get()) == 1 &&
                 TS_RESP_CTX_set_def_policy(context, policy.get()) == 1 &&
                 TS_RESP_CTX_set_signer_digest(context, EVP_get_digestbyname(behaviour.signatureHash)) == 1 &&
                 TS_RESP_CTX_set_ess_cert_id_digest(context, EVP_sha256()) == 1 &&
                 TS_RESP_CTX_set_accuracy(context, 1, 0, 0) == 1 &&
                 TS_RESP_CTX_set_clock_precision_digits(context, behaviour.fractionDigits) == 1;
    for (const EVP_MD* digest : {EVP_sha1(), EVP_sha256(), EVP_sha384(), EVP_sha512()})
        ready = ready && TS_RESP_CTX_add_md(context, digest) == 1;
    Require(ready, "timestamp authority");
}

}  // namespace

TsaServer::TsaServer(Certificate authority, std::vector<Certificate> chain, TsaBehaviour behaviour, std::uint16_t port)
    : authority_(std::move(authority)),
      chain_(std::move(chain)),
      behaviour_(std::move(behaviour)),
      server_([this](const HttpRequest& request) { return Answer(request); }, port) {}

void TsaServer::Behave(TsaBehaviour behaviour) {
    const std::lock_guard lock(mutex_);
    behaviour_ = std::move(behaviour);
}

HttpAnswer TsaServer::Answer(const HttpRequest& request) const {
    const std::lock_guard lock(mutex_);
    HttpAnswer answer{.contentType = behaviour_.contentType, .delay = behaviour_.delay, .drop = behaviour_.drop};
    if (behaviour_.credentials && request.Credentials() != behaviour_.credentials) {
        answer.status = 401;
        answer.headers = {{"WWW-Authenticate", "Basic realm=\"tsa\""}};
        return answer;
    }
    answer.status = behaviour_.httpStatus;
    if (answer.status != 200) return {.status = answer.status, .contentType = "text/plain", .body = "no timestamps"};
    const Bytes reply = Reply(platform::AsBytes(request.body), behaviour_);
    answer.body = platform::AsText(reply);
    return answer;
}

Bytes TsaServer::Reply(ByteView request, const TsaBehaviour& behaviour) const {
    if (behaviour.reply == Mode::empty) return {};
    if (behaviour.reply == Mode::garbage) return {'n', 'o', 't', ' ', 'D', 'E', 'R', 0x30, 0x82, 0xFF};
    const auto context = Made<TS_RESP_CTX_free>(TS_RESP_CTX_new(), "timestamp authority");
    Prepare(context.get(), authority_, chain_, behaviour);
    TsaBehaviour given = behaviour;
    TS_RESP_CTX_set_time_cb(context.get(), GiveTime, &given);
    TS_RESP_CTX_set_serial_cb(context.get(), GiveSerial, &serial_);
    const Bytes asked = RequestToAnswer(request, behaviour.reply);
    const auto bio = Made<BIO_free_all>(BIO_new_mem_buf(asked.data(), static_cast<int>(asked.size())), "request");
    const auto reply = Made<TS_RESP_free>(TS_RESP_create_response(context.get(), bio.get()), "timestamp reply");
    if (behaviour.reply == Mode::grantedWithMods)
        TS_STATUS_INFO_set_status(TS_RESP_get_status_info(reply.get()), TS_STATUS_GRANTED_WITH_MODS);
    Bytes der = EncodeDer<i2d_TS_RESP>(reply.get());
    if (behaviour.reply == Mode::brokenSignature) der.back() ^= 0x01;
    return der;
}

}  // namespace tests
