#include "crl_fixtures.h"

#include <openssl/pem.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "hylorn.h"
#include "support/temp_dir.h"

namespace crl_test {
namespace {

// The sixteen slots as the separate arguments the exported functions take.
#define SLOTS(n)                                                                            \
  n[0].c_str(), n[1].c_str(), n[2].c_str(), n[3].c_str(), n[4].c_str(), n[5].c_str(),       \
      n[6].c_str(), n[7].c_str(), n[8].c_str(), n[9].c_str(), n[10].c_str(), n[11].c_str(), \
      n[12].c_str(), n[13].c_str(), n[14].c_str(), n[15].c_str()
#define OUT_SLOTS(b)                                                                             \
  b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], \
      b[15]

using Slots = char[16][HYLORN_NAME_SIZE];

Name name_from(const Slots& s) {
  Name n;
  for (int i = 0; i < 16; ++i) n[i] = s[i];
  return n;
}

}  // namespace

std::ostream& operator<<(std::ostream& os, const Entry& e) {
  return os << "{" << to_hex(e.serial) << " " << e.revoked << " ext " << e.ext << " crit " << e.crit
            << " reason " << e.reason << " " << e.invalidity << "}";
}

Name name_of(const std::string& c, const std::string& o, const std::string& cn) {
  Name n;
  n[0] = c;
  n[1] = o;
  n[4] = cn;
  return n;
}

Crl base_crl() {
  Crl c;
  c.issuer = name_of("CN", "Hylorn Test CA", "CRL Issuer");
  c.thisUpdate = "20250301120000";
  c.nextUpdate = "20250401120000";
  return c;
}

const SigningKey& signing_key() {
  static const hylorn_test::TempDir dir;
  static const SigningKey key = [] {
    SigningKey k{dir.path("ca.key"), Bytes(HYLORN_PUBKEY_DER_SIZE), Bytes(HYLORN_PRIKEY_DER_SIZE)};
    unsigned pubLen = 0, priLen = 0;
    if (Crypt_GenRSAKeyPair(k.path.c_str(), 0, k.pub.data(), &pubLen, k.pri.data(), &priLen)) {
      throw std::runtime_error("Crypt_GenRSAKeyPair");
    }
    k.pub.resize(pubLen);
    k.pri.resize(priLen);
    return k;
  }();
  return key;
}

Bytes encode(const Crl& c, const std::string& key, int* failed_at) {
  auto fail = [&](int step) {
    if (failed_at != nullptr) *failed_at = step;
    return Bytes{};
  };
  if (Crypt_Encode_Crl_Init(u8(c.version), static_cast<unsigned short>(c.alg), c.params.data(),
                            u32(c.params.size()), SLOTS(c.issuer), c.thisUpdate.c_str(),
                            c.nextUpdate.c_str()) != 0) {
    return fail(1);
  }
  for (const Entry& e : c.entries) {
    if (Crypt_Encode_Crl_Update(e.serial.data(), u32(e.serial.size()), e.revoked.c_str(), e.ext,
                                e.crit, e.reason, e.invalidity.c_str()) != 0) {
      return fail(2);
    }
  }
  Bytes out(8192 + 256 * c.entries.size());
  u32 outLen = 0;
  if (Crypt_Encode_Crl_Final(c.ext, c.crit, SLOTS(c.akiIssuer), c.akiSerial.data(),
                             int(c.akiSerial.size()), c.number.data(), u32(c.number.size()),
                             key.c_str(), "", out.data(), &outLen) != 0) {
    return fail(3);
  }
  if (failed_at != nullptr) *failed_at = 0;
  out.resize(outLen);
  return out;
}

std::optional<Crl> decode(const Bytes& der) {
  Crl c;
  void* handle = nullptr;
  Slots issuer{}, aki{};
  char thisUpdate[HYLORN_TIME_SIZE] = {}, nextUpdate[HYLORN_TIME_SIZE] = {};
  Bytes params(HYLORN_PARAMS_SIZE);
  u32 paramsLen = 0;
  if (Crypt_Decode_Crl_Init(&handle, der.data(), u32(der.size()), &c.version, &c.alg, params.data(),
                            &paramsLen, OUT_SLOTS(issuer), thisUpdate, nextUpdate) != 0) {
    return std::nullopt;
  }
  c.params.assign(params.begin(), params.begin() + paramsLen);
  c.issuer = name_from(issuer);
  c.thisUpdate = thisUpdate;
  c.nextUpdate = nextUpdate;
  for (;;) {
    Entry e;
    u8 serial[HYLORN_SERIAL_SIZE];
    u32 serialLen = 0;
    char revoked[HYLORN_TIME_SIZE] = {}, invalidity[HYLORN_TIME_SIZE] = {};
    if (Crypt_Decode_Crl_Update(handle, serial, &serialLen, revoked, &e.ext, &e.crit, &e.reason,
                                invalidity) != 0) {
      break;
    }
    e.serial.assign(serial, serial + serialLen);
    e.revoked = revoked;
    e.invalidity = invalidity;
    c.entries.push_back(e);
  }
  u8 akiSerial[HYLORN_SERIAL_SIZE], number[128];
  u32 akiSerialLen = 0, numberLen = 0;
  Crypt_Decode_Crl_Final(handle, &c.ext, &c.crit, OUT_SLOTS(aki), akiSerial, &akiSerialLen, number,
                         &numberLen);
  c.akiIssuer = name_from(aki);
  c.akiSerial.assign(akiSerial, akiSerial + akiSerialLen);
  c.number.assign(number, number + numberLen);
  return c;
}

Bytes tlv(u8 tag, const Bytes& contents) {
  const std::size_t n = contents.size();
  Bytes out = n < 0x80      ? Bytes{tag, u8(n)}
              : n < 0x100   ? Bytes{tag, 0x81, u8(n)}
              : n < 0x10000 ? Bytes{tag, 0x82, u8(n >> 8), u8(n)}
                            : Bytes{tag, 0x83, u8(n >> 16), u8(n >> 8), u8(n)};
  out.insert(out.end(), contents.begin(), contents.end());
  return out;
}

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

Bytes tbs_of(const Bytes& crl) {
  // 30 <length> then the TBS element, whose own length octets say where it ends.
  std::size_t pos = crl.at(1) < 0x80 ? 2 : 2 + (crl.at(1) & 0x7F);
  const std::size_t start = pos;
  std::size_t len = crl.at(pos + 1);
  std::size_t head = 2;
  if (len >= 0x80) {
    const std::size_t k = len & 0x7F;
    len = 0;
    for (std::size_t i = 0; i < k; ++i) len = (len << 8) | crl.at(pos + 2 + i);
    head += k;
  }
  return Bytes(crl.begin() + start, crl.begin() + start + head + len);
}

Bytes wrap_tbs(const Bytes& tbs) {
  const Bytes md5rsa = from_hex("30 0d 06 09 2a 86 48 86 f7 0d 01 01 04 05 00");
  return tlv(0x30, cat({tbs, md5rsa, tlv(0x03, Bytes(9, 0x00))}));
}

X509Ptr issuing_certificate(const Name& subject) {
  const EvpKey pub = load_public_der(signing_key().pub);
  const EvpKey pri = load_private_der(signing_key().pri);
  X509Ptr cert(X509_new());
  X509_set_version(cert.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 7);
  X509_NAME* name = X509_get_subject_name(cert.get());
  const char* fields[16] = {"C", "O", "OU", "ST", "CN", "L"};
  for (int i = 0; i < 6; ++i) {
    if (subject[i].empty()) continue;
    X509_NAME_add_entry_by_txt(name, fields[i], MBSTRING_ASC,
                               reinterpret_cast<const u8*>(subject[i].c_str()), -1, -1, 0);
  }
  X509_set_issuer_name(cert.get(), name);
  ASN1_TIME_set_string(X509_getm_notBefore(cert.get()), "20200101000000Z");
  ASN1_TIME_set_string(X509_getm_notAfter(cert.get()), "20400101000000Z");
  X509_set_pubkey(cert.get(), pub.get());
  if (X509_sign(cert.get(), pri.get(), EVP_sha256()) <= 0) throw std::runtime_error("X509_sign");
  return cert;
}

CrlPtr openssl_parse(const Bytes& der) {
  const u8* p = der.data();
  CrlPtr crl(d2i_X509_CRL(nullptr, &p, long(der.size())));
  if (crl && p != der.data() + der.size()) crl.reset();
  return crl;
}

std::string pem_of(X509* cert) {
  BIO* bio = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(bio, cert);
  char* data = nullptr;
  const long n = BIO_get_mem_data(bio, &data);
  std::string out(data, std::size_t(n));
  BIO_free(bio);
  return out;
}

std::pair<std::string, bool> run(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return {"", false};
  std::string out;
  char buf[4096];
  for (std::size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  return {out, pclose(pipe) == 0};
}

}  // namespace crl_test
