// The two 94-argument calls, written out once.
#include "cert.h"

#include <algorithm>
#include <cstring>

namespace hylorn_tool {

const FlagName kKeyUsageNames[9] = {
    {0x80, "digitalSignature"}, {0x40, "nonRepudiation"}, {0x20, "keyEncipherment"},
    {0x10, "dataEncipherment"}, {0x08, "keyAgreement"},   {0x04, "keyCertSign"},
    {0x02, "cRLSign"},          {0x01, "encipherOnly"},   {0x8000, "decipherOnly"}};

std::string flag_names(unsigned bits, const FlagName* table, size_t count) {
  std::string out;
  for (size_t i = 0; i < count; ++i) {
    if (!(bits & table[i].bit)) continue;
    if (!out.empty()) out += ", ";
    out += table[i].name;
    bits &= ~table[i].bit;
  }
  if (bits)
    out += (out.empty() ? "" : ", ") + std::string("other bits 0x") +
           hex(Bytes{static_cast<unsigned char>(bits >> 8), static_cast<unsigned char>(bits)});
  return out.empty() ? "(none)" : out;
}

unsigned parse_flags(const std::string& list, const FlagName* table, size_t count,
                     const std::string& what) {
  unsigned bits = 0;
  size_t pos = 0;
  while (pos <= list.size()) {
    size_t comma = list.find(',', pos);
    std::string item =
        list.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
    bool found = false;
    for (size_t i = 0; i < count; ++i)
      if (item == table[i].name) bits |= table[i].bit, found = true;
    if (!found) fail(what + " \"" + item + "\"", "unknown name");
    if (comma == std::string::npos) break;
    pos = comma + 1;
  }
  return bits;
}

namespace {
constexpr const char* kReasons[] = {"unspecified",        "keyCompromise", "cACompromise",
                                    "affiliationChanged", "superseded",    "cessationOfOperation",
                                    "certificateHold",    nullptr,         "removeFromCRL",
                                    "privilegeWithdrawn", "aACompromise"};
}  // namespace

const char* reason_name(int code) {
  if (code < 0 || code > 10 || !kReasons[code]) return "unknown reason";
  return kReasons[code];
}

int reason_code(const std::string& name) {
  for (int i = 0; i <= 10; ++i)
    if (kReasons[i] && name == kReasons[i]) return i;
  fail("reason \"" + name + "\"",
       "unknown (use unspecified, keyCompromise, cACompromise, affiliationChanged, superseded, "
       "cessationOfOperation, certificateHold, removeFromCRL, privilegeWithdrawn or aACompromise)");
}

Bytes key_file_public(const std::string& key_file) {
  unsigned char pub[HYLORN_PUBKEY_DER_SIZE];
  unsigned len = 0;
  if (Crypt_GetRSAPublicKey(key_file.c_str(), 0, pub, &len) != 0)
    fail_lib(key_file, "cannot read the key file (Crypt_GetRSAPublicKey)");
  return Bytes(pub, pub + len);
}

bool decode_cert(const Bytes& der, Cert& out) {
  unsigned version = 0, serial_len = 0, sig_alg = 0, params_len = 0, pub_len = 0;
  unsigned iuid_len = 0, suid_len = 0, sig_len = 0, ext = 0, crit = 0, aki_serial_len = 0;
  unsigned pol_len[4] = {}, ku = 0, ns = 0, set = 0, hrk_len = 0, pol_count = 0, ski_len = 0;
  unsigned char serial[HYLORN_SERIAL_SIZE], params[HYLORN_PARAMS_SIZE];
  std::vector<unsigned char> pub(HYLORN_PUBKEY_SIZE), sig(HYLORN_PUBKEY_SIZE);
  unsigned char iuid[HYLORN_SERIAL_SIZE], suid[HYLORN_SERIAL_SIZE];
  unsigned char aki_serial[HYLORN_SERIAL_SIZE], pol[4][HYLORN_POLICY_OID_SIZE];
  char qual[4][HYLORN_POLICY_QUALIFIER_SIZE],
      pkup_nb[HYLORN_TIME_SIZE] = "", pkup_na[HYLORN_TIME_SIZE] = "",
      not_before[HYLORN_TIME_SIZE] = "", not_after[HYLORN_TIME_SIZE] = "";
  unsigned char ca = 0, hrk[HYLORN_HASHED_ROOT_KEY_SIZE], ski[HYLORN_SUBJECT_KEY_ID_SIZE];
  int path_len = 0;
  NameBuffers issuer, subject, aki;
  if (der.empty() || der.size() > 0xffffffffu) return false;
  unsigned r = Crypt_Decode_Cert(
      der.data(), static_cast<unsigned>(der.size()), &version, serial, &serial_len, &sig_alg,
      params, &params_len, HYLORN_TOOL_NAME16(issuer.slot), not_before, not_after,
      HYLORN_TOOL_NAME16(subject.slot), pub.data(), &pub_len, iuid, &iuid_len, suid, &suid_len,
      sig.data(), &sig_len, &ext, &crit, HYLORN_TOOL_NAME16(aki.slot), aki_serial, &aki_serial_len,
      pol[0], &pol_len[0], qual[0], pol[1], &pol_len[1], qual[1], pol[2], &pol_len[2], qual[2],
      pol[3], &pol_len[3], qual[3], pkup_nb, pkup_na, &ca, &path_len, &ku, &ns, &set, hrk, &hrk_len,
      &pol_count, ski, &ski_len);
  if (r != 0) return false;
  auto bytes = [](const unsigned char* p, unsigned n, size_t cap) {
    return Bytes(p, p + (n < cap ? n : cap));
  };
  out = Cert{};
  out.version = version;
  out.serial = bytes(serial, serial_len, sizeof serial);
  out.sig_alg = sig_alg;
  out.params = bytes(params, params_len, sizeof params);
  out.issuer = issuer.name();
  out.subject = subject.name();
  out.not_before = not_before;
  out.not_after = not_after;
  out.public_key = bytes(pub.data(), pub_len, pub.size());
  out.signature = bytes(sig.data(), sig_len, sig.size());
  out.ext_flags = ext;
  out.crit_flags = crit;
  out.aki_issuer = aki.name();
  out.aki_serial = bytes(aki_serial, aki_serial_len, sizeof aki_serial);
  for (unsigned i = 0; i < 4 && i < pol_count; ++i)
    out.policies.push_back({bytes(pol[i], pol_len[i], sizeof pol[i]),
                            std::string(qual[i], strnlen(qual[i], sizeof qual[i]))});
  out.pkup_not_before = pkup_nb;
  out.pkup_not_after = pkup_na;
  out.ca = ca != 0;
  out.path_len = path_len;
  out.key_usage = ku;
  out.ns_cert_type = ns;
  out.set_cert_type = set;
  out.hashed_root_key = bytes(hrk, hrk_len, sizeof hrk);
  out.subject_key_id = bytes(ski, ski_len, sizeof ski);
  return true;
}

bool decode_crl(const Bytes& der, Crl& out) {
  void* handle = nullptr;
  unsigned params_len = 0;
  unsigned char params[HYLORN_PARAMS_SIZE];
  NameBuffers issuer, aki;
  char this_update[HYLORN_TIME_SIZE] = "", next_update[HYLORN_TIME_SIZE] = "";
  if (der.empty() || der.size() > 0xffffffffu) return false;
  out = Crl{};
  if (Crypt_Decode_Crl_Init(&handle, der.data(), static_cast<unsigned>(der.size()), &out.version,
                            &out.sig_alg, params, &params_len, HYLORN_TOOL_NAME16(issuer.slot),
                            this_update, next_update) != 0)
    return false;
  out.issuer = issuer.name();
  out.this_update = this_update;
  out.next_update = next_update;
  for (;;) {
    unsigned char serial[HYLORN_SERIAL_SIZE];
    unsigned serial_len = 0;
    char date[HYLORN_TIME_SIZE] = "", invalidity[HYLORN_TIME_SIZE] = "";
    CrlEntry e;
    if (Crypt_Decode_Crl_Update(handle, serial, &serial_len, date, &e.ext, &e.crit, &e.reason,
                                invalidity) != 0)
      break;
    e.serial.assign(serial, serial + std::min<unsigned>(serial_len, sizeof serial));
    e.date = date;
    e.invalidity = invalidity;
    out.entries.push_back(e);
  }
  unsigned char aki_serial[HYLORN_SERIAL_SIZE], number[HYLORN_SERIAL_SIZE];
  unsigned aki_serial_len = 0, number_len = 0;
  if (Crypt_Decode_Crl_Final(handle, &out.ext, &out.crit, HYLORN_TOOL_NAME16(aki.slot), aki_serial,
                             &aki_serial_len, number, &number_len) != 0)
    return false;
  out.aki_issuer = aki.name();
  out.aki_serial.assign(aki_serial,
                        aki_serial + std::min<unsigned>(aki_serial_len, sizeof aki_serial));
  out.number.assign(number, number + std::min<unsigned>(number_len, sizeof number));
  return true;
}

Cert load_cert(const Bytes& der, const std::string& path) {
  Cert cert;
  if (!decode_cert(der, cert))
    fail_lib(path, "not a certificate the library can read (Crypt_Decode_Cert)");
  return cert;
}

Bytes encode_cert(const Cert& in, const std::string& key_name) {
  if (in.serial.size() > HYLORN_SERIAL_SIZE || in.public_key.size() > 0xffff ||
      in.policies.size() > 4)
    fail("certificate", "field too long for the library");
  const Policy none;
  const Policy* pol[4];
  for (int i = 0; i < 4; ++i)
    pol[i] = i < static_cast<int>(in.policies.size()) ? &in.policies[i] : &none;
  NameArgs issuer(in.issuer), subject(in.subject), aki(in.aki_issuer);
  Bytes out(HYLORN_CERT_DER_SIZE);
  unsigned len = 0;
  unsigned r = Crypt_Encode_Cert(
      static_cast<unsigned char>(in.version), in.serial.data(),
      static_cast<unsigned short>(in.serial.size()), static_cast<unsigned short>(in.sig_alg),
      in.params.data(), static_cast<int>(in.params.size()), HYLORN_TOOL_NAME16(issuer),
      in.not_before.c_str(), in.not_after.c_str(), HYLORN_TOOL_NAME16(subject),
      in.public_key.data(), static_cast<unsigned short>(in.public_key.size()), nullptr, 0, nullptr,
      0, in.ext_flags, in.crit_flags, HYLORN_TOOL_NAME16(aki), in.aki_serial.data(),
      static_cast<int>(in.aki_serial.size()), pol[0]->oid.data(),
      static_cast<int>(pol[0]->oid.size()), pol[0]->qualifier.c_str(), pol[1]->oid.data(),
      static_cast<int>(pol[1]->oid.size()), pol[1]->qualifier.c_str(), pol[2]->oid.data(),
      static_cast<int>(pol[2]->oid.size()), pol[2]->qualifier.c_str(), pol[3]->oid.data(),
      static_cast<int>(pol[3]->oid.size()), pol[3]->qualifier.c_str(), in.pkup_not_before.c_str(),
      in.pkup_not_after.c_str(), in.ca ? 1 : 0, in.path_len, in.key_usage, in.ns_cert_type,
      in.set_cert_type, in.hashed_root_key.data(), static_cast<unsigned>(in.hashed_root_key.size()),
      0, nullptr, 0, key_name.c_str(), "", out.data(), &len);
  if (r != 0)
    fail_lib("certificate for " + format_name(in.subject), "signing failed (Crypt_Encode_Cert)");
  out.resize(len);
  return out;
}

}  // namespace hylorn_tool
