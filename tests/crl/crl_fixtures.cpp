#include "crl_fixtures.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <stdexcept>

#include "asn1/list.h"
#include "hylorn.h"
#include "support/openssl_bytes.h"
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

const SigningKey& signing_key() {
  static const TempDir dir;
  static const SigningKey key = [] {
    SigningKey k{dir.path("ca.key"), Bytes(HYLORN_PUBKEY_DER_SIZE), Bytes(HYLORN_PRIKEY_DER_SIZE)};
    u32 pubLen = 0, priLen = 0;
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
  int ignored = 0;
  int& step = failed_at != nullptr ? *failed_at : ignored;
  step = 1;
  if (Crypt_Encode_Crl_Init(u8(c.version), static_cast<unsigned short>(c.alg), c.params.data(),
                            u32(c.params.size()), SLOTS(c.issuer), c.thisUpdate.c_str(),
                            c.nextUpdate.c_str()) != 0) {
    return {};
  }
  step = 2;
  for (const Entry& e : c.entries) {
    if (Crypt_Encode_Crl_Update(e.serial.data(), u32(e.serial.size()), e.revoked.c_str(), e.ext,
                                e.crit, e.reason, e.invalidity.c_str()) != 0) {
      return {};
    }
  }
  step = 3;
  Bytes out(8192 + 256 * c.entries.size());
  u32 outLen = 0;
  if (Crypt_Encode_Crl_Final(c.ext, c.crit, SLOTS(c.akiIssuer), c.akiSerial.data(),
                             int(c.akiSerial.size()), c.number.data(), u32(c.number.size()),
                             key.c_str(), "", out.data(), &outLen) != 0) {
    return {};
  }
  step = 0;
  out.resize(outLen);
  return out;
}

std::optional<Crl> decode(const Bytes& der, std::size_t max_entries) {
  Crl c;
  void* handle = nullptr;
  Slots issuer{}, aki{};
  char thisUpdate[HYLORN_TIME_SIZE], nextUpdate[HYLORN_TIME_SIZE];
  u8 params[HYLORN_PARAMS_SIZE], serial[HYLORN_SERIAL_SIZE], number[128];
  u32 paramsLen = 0, serialLen = 0, numberLen = 0;
  if (Crypt_Decode_Crl_Init(&handle, der.data(), u32(der.size()), &c.version, &c.alg, params,
                            &paramsLen, OUT_SLOTS(issuer), thisUpdate, nextUpdate) != 0) {
    return std::nullopt;
  }
  c.params.assign(params, params + paramsLen);
  c.issuer = name_from(issuer);
  c.thisUpdate = thisUpdate;
  c.nextUpdate = nextUpdate;
  for (Entry e; c.entries.size() < max_entries; e = Entry{}) {
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
  serialLen = 0;
  Crypt_Decode_Crl_Final(handle, &c.ext, &c.crit, OUT_SLOTS(aki), serial, &serialLen, number,
                         &numberLen);
  c.akiIssuer = name_from(aki);
  c.akiSerial.assign(serial, serial + serialLen);
  c.number.assign(number, number + numberLen);
  return c;
}

Bytes tlv(u8 tag, const Bytes& contents) {
  const std::size_t n = contents.size();
  Bytes out{tag};
  const int k = n < 0x80 ? 0 : n < 0x100 ? 1 : n < 0x10000 ? 2 : 3;  // long-form octets
  if (k > 0) out.push_back(u8(0x80 | k));
  for (int i = k > 0 ? k - 1 : 0; i >= 0; --i) out.push_back(u8(n >> (8 * i)));
  out.insert(out.end(), contents.begin(), contents.end());
  return out;
}

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

Bytes tbs_of(const Bytes& crl) {
  hylorn::ASN1_SEQUENCE* parts = nullptr;
  if (hylorn::ASN1_Decode_Sequence(u32(crl.size()), crl.data(), &parts) != 0) return {};
  const Bytes tbs(parts->value.data, parts->value.data + parts->value.length);
  hylorn::free_ASN1_SEQUENCE(parts);
  return tbs;
}

Bytes wrap_tbs(const Bytes& tbs) {
  const Bytes md5rsa = from_hex("30 0d 06 09 2a 86 48 86 f7 0d 01 01 04 05 00");
  return tlv(0x30, cat({tbs, md5rsa, tlv(0x03, Bytes(9, 0x00))}));
}

// ---- OpenSSL -------------------------------------------------------------------------------

namespace {

// One RDN per attribute, as PrintableString, in slot order C, O, OU, ST, CN.
X509_NAME* printable_name(const Name& n) {
  X509_NAME* name = X509_NAME_new();
  const char* fields[] = {"C", "O", "OU", "ST", "CN"};
  for (int i = 0; i < 5; ++i) {
    if (n[i].empty()) continue;
    X509_NAME_add_entry_by_txt(name, fields[i], V_ASN1_PRINTABLESTRING,
                               reinterpret_cast<const u8*>(n[i].c_str()), -1, -1, 0);
  }
  return name;
}

ASN1_TIME* time_of(const std::string& t) {
  ASN1_TIME* out = ASN1_TIME_new();
  ASN1_TIME_set_string(out, ((t >= "2050" ? t : t.substr(2)) + "Z").c_str());
  return out;
}

ASN1_INTEGER* integer_of(const Bytes& magnitude) {
  BIGNUM* bn = BN_bin2bn(magnitude.data(), int(magnitude.size()), nullptr);
  ASN1_INTEGER* out = BN_to_ASN1_INTEGER(bn, nullptr);
  BN_free(bn);
  return out;
}

// Adds an extension by its i2d value and frees the value.
template <class T, class Add>
void add_ext(Add add, int nid, T* value, void (*free)(T*), bool critical) {
  add(nid, value, critical ? 1 : 0);
  free(value);
}

}  // namespace

Bytes openssl_crl(const Crl& c, const EVP_MD* md) {
  X509_CRL* crl = X509_CRL_new();
  X509_CRL_set_version(crl, c.version);
  X509_NAME* issuer = printable_name(c.issuer);
  X509_CRL_set_issuer_name(crl, issuer);
  X509_NAME_free(issuer);
  ASN1_TIME* t = time_of(c.thisUpdate);
  X509_CRL_set1_lastUpdate(crl, t);
  ASN1_TIME_free(t);
  if (!c.nextUpdate.empty()) {
    t = time_of(c.nextUpdate);
    X509_CRL_set1_nextUpdate(crl, t);
    ASN1_TIME_free(t);
  }
  for (const Entry& e : c.entries) {
    X509_REVOKED* r = X509_REVOKED_new();
    auto add = [r](int nid, void* v, int crit) { X509_REVOKED_add1_ext_i2d(r, nid, v, crit, 0); };
    ASN1_INTEGER* serial = integer_of(e.serial);
    X509_REVOKED_set_serialNumber(r, serial);
    ASN1_INTEGER_free(serial);
    t = time_of(e.revoked);
    X509_REVOKED_set_revocationDate(r, t);
    ASN1_TIME_free(t);
    if (e.ext & kReason) {
      ASN1_ENUMERATED* code = ASN1_ENUMERATED_new();
      ASN1_ENUMERATED_set(code, long(e.reason));
      add_ext(add, NID_crl_reason, code, ASN1_ENUMERATED_free, e.crit & kReason);
    }
    if (e.ext & kInvalidity) {
      ASN1_GENERALIZEDTIME* when = ASN1_GENERALIZEDTIME_new();
      ASN1_GENERALIZEDTIME_set_string(when, (e.invalidity + "Z").c_str());
      add_ext(add, NID_invalidity_date, when, ASN1_GENERALIZEDTIME_free, e.crit & kInvalidity);
    }
    X509_CRL_add0_revoked(crl, r);
  }
  auto add = [crl](int nid, void* v, int crit) { X509_CRL_add1_ext_i2d(crl, nid, v, crit, 0); };
  if (c.ext & kAki) {
    AUTHORITY_KEYID* aki = AUTHORITY_KEYID_new();
    aki->issuer = GENERAL_NAMES_new();
    GENERAL_NAME* gn = GENERAL_NAME_new();
    GENERAL_NAME_set0_value(gn, GEN_DIRNAME, printable_name(c.akiIssuer));
    sk_GENERAL_NAME_push(aki->issuer, gn);
    aki->serial = integer_of(c.akiSerial);
    add_ext(add, NID_authority_key_identifier, aki, AUTHORITY_KEYID_free, c.crit & kAki);
  }
  if (c.ext & kNumber) {
    add_ext(add, NID_crl_number, integer_of(c.number), ASN1_INTEGER_free, c.crit & kNumber);
  }
  const EvpKey key = load_private_der(signing_key().pri);
  const Bytes der = X509_CRL_sign(crl, key.get(), md) > 0 ? i2d_bytes(i2d_X509_CRL, crl) : Bytes{};
  X509_CRL_free(crl);
  return der;
}

std::string issuing_certificate_pem(const Name& subject) {
  const EvpKey pub = load_public_der(signing_key().pub), pri = load_private_der(signing_key().pri);
  X509* cert = X509_new();
  X509_set_version(cert, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(cert), 7);
  X509_NAME* name = printable_name(subject);
  X509_set_subject_name(cert, name);
  X509_set_issuer_name(cert, name);
  X509_NAME_free(name);
  X509_gmtime_adj(X509_getm_notBefore(cert), 0);
  X509_gmtime_adj(X509_getm_notAfter(cert), 3600);
  X509_set_pubkey(cert, pub.get());
  X509_sign(cert, pri.get(), EVP_sha256());
  BIO* bio = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(bio, cert);
  char* data = nullptr;
  const long n = BIO_get_mem_data(bio, &data);
  const std::string pem(data, std::size_t(n));
  BIO_free(bio);
  X509_free(cert);
  return pem;
}

std::pair<std::string, bool> run(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  std::string out;
  char buf[4096];
  for (std::size_t n; pipe != nullptr && (n = fread(buf, 1, sizeof buf, pipe)) > 0;) {
    out.append(buf, n);
  }
  return {out, pipe != nullptr && pclose(pipe) == 0};
}

}  // namespace crl_test
