#pragma once
// Makes and checks CMS signatures with CAdES attributes and timestamps:
//
//     CkCertW certificate;
//     if (!certificate.LoadByThumbprint(thumbprint, u"hex")) ...
//     CkCrypt2W crypt;
//     crypt.SetSigningCert(certificate);
//     crypt.put_CadesEnabled(true);
//     crypt.put_SigningAttributes(u"{\"contentType\":true,\"messageDigest\":true,\"signingTime\":true}");
//     if (!crypt.CreateP7M(u"report.pdf", u"report.pdf.p7m")) Log(crypt.lastErrorText());

#include <memory>

#include "toolkit/CkWideCharBase.h"
#include "toolkit/ClsCrypt2.h"

namespace toolkit {

class CkBinDataW;
class CkByteData;
class CkCertW;
class CkHttpW;
class CkJsonObjectW;

class CkCrypt2W : public CkWideCharBase {
  public:
    CkCrypt2W();

    void put_HashAlgorithm(const char16_t* name);  // "sha1", "sha256" (the default), "sha384", "sha512"
    void put_CadesEnabled(bool on);                // signingCertificateV2 whatever the attributes say
    void put_IncludeCertChain(bool on);            // the signer's chain, not the signer alone
    void put_SigningAttributes(const char16_t* json);
    void put_CmsOptions(const char16_t* json);
    void put_DerOrder(bool on);  // signed attributes sorted as DER wants a SET OF
    void SetProgress(ProgressHandler handler);

    // Clears the list of signers and enters this certificate.
    bool SetSigningCert(CkCertW& certificate);
    // Shares the client: the caller's object may go right after.
    void SetTsaHttpObj(CkHttpW& http);

    // Input and output paths. True: the output is there and complete. False: there is no output of this call, and
    // lastErrorText tells why.
    bool CreateP7M(const char16_t* input, const char16_t* output);
    bool CreateP7S(const char16_t* input, const char16_t* output);

    bool VerifyBytes(CkByteData& content, CkByteData& signature);
    bool OpaqueVerifyBd(CkBinDataW& data);
    bool VerifyP7M(const char16_t* input, const char16_t* output);
    // The findings of the last verification; null before one.
    std::unique_ptr<CkJsonObjectW> LastJsonData();

    [[nodiscard]] ClsCrypt2& Implementation() { return *crypt_; }

  protected:
    ClsBase& Working() override { return *crypt_; }

  private:
    std::shared_ptr<ClsCrypt2> crypt_;
};

}  // namespace toolkit
