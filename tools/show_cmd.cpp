// show: a certificate, CRL, PKCS #10 request or SPKAC as readable text. The kind is found
// by trying the library's decoders in turn.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <sstream>

#include "cert.h"
#include "der.h"

namespace hylorn_tool {

namespace {

const FlagName kNetscapeTypes[8] = {
    {0x80, "SSL client"}, {0x40, "SSL server"}, {0x20, "S/MIME"},    {0x10, "object signing"},
    {0x08, "reserved"},   {0x04, "SSL CA"},     {0x02, "S/MIME CA"}, {0x01, "object signing CA"}};

// Hex in lines of 18 octets, as people are used to reading keys and signatures.
void print_hex_block(std::ostream& os, const Bytes& data, const std::string& indent) {
  for (size_t i = 0; i < data.size(); i += 18) {
    Bytes line(data.begin() + static_cast<long>(i),
               data.begin() + static_cast<long>(std::min(data.size(), i + 18)));
    os << indent << hex(line, ":") << "\n";
  }
}

Bytes strip_zeros(const unsigned char* p, size_t n) {
  size_t i = 0;
  while (i + 1 < n && p[i] == 0) ++i;
  return Bytes(p + i, p + n);
}

void print_public_key(std::ostream& os, const Bytes& pub, const std::string& indent) {
  unsigned bits = 0;
  unsigned char n[128], e[128];
  if (Crypt_Decode_Pubkey_Info(pub.data(), static_cast<int>(pub.size()), &bits, n, e) != 0) {
    os << indent << "Public key: not an RSA key the library reads (" << pub.size() << " octets)\n";
    return;
  }
  Bytes modulus = strip_zeros(n, sizeof n);
  Bytes exponent = strip_zeros(e, sizeof e);
  size_t real_bits = modulus.size() * 8;
  for (unsigned char top = modulus.empty() ? 0 : modulus[0]; real_bits && !(top & 0x80); top <<= 1)
    --real_bits;
  os << indent << "Public key: RSA, " << real_bits << " bit\n" << indent << "  Modulus:\n";
  print_hex_block(os, modulus, indent + "    ");
  os << indent << "  Exponent: " << serial_decimal(exponent) << " (0x" << hex(exponent) << ")\n";
}

std::string crit(unsigned crit_flags, unsigned bit) {
  return (crit_flags & bit) ? " (critical)" : "";
}

void print_extensions(std::ostream& os, const Cert& c) {
  if (!c.ext_flags && c.subject_key_id.empty()) return;
  os << "  Extensions:\n";
  if (c.ext_flags & kExtAuthorityKeyId) {
    os << "    Authority key identifier" << crit(c.crit_flags, kExtAuthorityKeyId) << ":\n";
    os << "      Authority issuer: " << format_name(c.aki_issuer) << "\n";
    if (!c.aki_serial.empty())
      os << "      Authority serial: " << serial_decimal(c.aki_serial) << "\n";
  }
  if (!c.subject_key_id.empty())
    os << "    Subject key identifier: " << hex(c.subject_key_id, ":") << "\n";
  if (c.ext_flags & kExtKeyUsage)
    os << "    Key usage" << crit(c.crit_flags, kExtKeyUsage) << ": "
       << flag_names(c.key_usage, kKeyUsageNames, 9) << "\n";
  if (c.ext_flags & kExtPrivateKeyUsagePeriod)
    os << "    Private key usage period" << crit(c.crit_flags, kExtPrivateKeyUsagePeriod)
       << ": not before " << readable_time(c.pkup_not_before) << ", not after "
       << readable_time(c.pkup_not_after) << "\n";
  if (c.ext_flags & kExtPolicies) {
    os << "    Certificate policies" << crit(c.crit_flags, kExtPolicies) << ":\n";
    for (const Policy& p : c.policies)
      os << "      Policy " << oid_text(p.oid.data(), p.oid.size())
         << (p.qualifier.empty() ? "" : ", CPS: " + p.qualifier) << "\n";
  }
  if (c.ext_flags & kExtBasicConstraints) {
    os << "    Basic constraints" << crit(c.crit_flags, kExtBasicConstraints) << ": CA "
       << (c.ca ? "TRUE" : "FALSE");
    if (c.ca) os << ", path length " << (c.path_len < 0 ? "unlimited" : std::to_string(c.path_len));
    os << "\n";
  }
  if (c.ext_flags & kExtNetscapeCertType)
    os << "    Netscape certificate type" << crit(c.crit_flags, kExtNetscapeCertType) << ": "
       << flag_names(c.ns_cert_type, kNetscapeTypes, 8) << "\n";
  if (c.ext_flags & kExtSetCertType)
    os << "    SET certificate type" << crit(c.crit_flags, kExtSetCertType) << ": 0x"
       << hex(Bytes{static_cast<unsigned char>(c.set_cert_type >> 8),
                    static_cast<unsigned char>(c.set_cert_type)})
       << "\n";
  if (c.ext_flags & kExtSetHashedRootKey)
    os << "    SET hashed root key" << crit(c.crit_flags, kExtSetHashedRootKey) << ": "
       << hex(c.hashed_root_key, ":") << "\n";
}

Bytes sha1(const Bytes& der) {
  unsigned char digest[HYLORN_DIGEST_SIZE];
  unsigned len = 0;
  if (Crypt_Gen_Hash(3, der.data(), static_cast<unsigned>(der.size()), digest, &len) != 0)
    return {};
  return Bytes(digest, digest + len);
}

void print_cert(std::ostream& os, const Bytes& der, const Cert& c) {
  os << "Certificate:\n";
  os << "  Version: " << c.version + 1 << " (0x" << c.version << ")\n";
  os << "  Serial number: " << serial_decimal(c.serial) << " (0x" << hex(c.serial) << ")\n";
  os << "  Signature algorithm: " << sig_alg_name(c.sig_alg) << "\n";
  os << "  Issuer: " << format_name(c.issuer) << "\n";
  os << "  Validity:\n";
  os << "    Not before: " << readable_time(c.not_before) << "\n";
  os << "    Not after:  " << readable_time(c.not_after) << "\n";
  os << "  Subject: " << format_name(c.subject) << "\n";
  print_public_key(os, c.public_key, "  ");
  print_extensions(os, c);
  os << "  Signature (" << c.signature.size() << " octets):\n";
  print_hex_block(os, c.signature, "    ");
  os << "  SHA-1 fingerprint: " << hex(sha1(der), ":") << "\n";
}

void print_crl(std::ostream& os, const Bytes& der, const Crl& crl) {
  os << "Certificate revocation list:\n";
  os << "  Version: " << crl.version + 1 << " (0x" << crl.version << ")\n";
  os << "  Signature algorithm: " << sig_alg_name(crl.sig_alg) << "\n";
  os << "  Issuer: " << format_name(crl.issuer) << "\n";
  os << "  This update: " << readable_time(crl.this_update) << "\n";
  os << "  Next update: " << readable_time(crl.next_update) << "\n";
  os << "  Revoked certificates:" << (crl.entries.empty() ? " (none)" : "") << "\n";
  for (const CrlEntry& e : crl.entries) {
    os << "    Serial " << serial_decimal(e.serial) << " (0x" << hex(e.serial) << "), revoked "
       << readable_time(e.date);
    if (e.ext & 0x0400)
      os << ", reason " << reason_name(static_cast<int>(e.reason)) << crit(e.crit, 0x0400);
    if (e.ext & 0x0800)
      os << ", invalid since " << readable_time(e.invalidity) << crit(e.crit, 0x0800);
    os << "\n";
  }
  if (crl.ext) os << "  Extensions:\n";
  if (crl.ext & 0x0001) {
    os << "    Authority key identifier" << crit(crl.crit, 0x0001) << ":\n";
    os << "      Authority issuer: " << format_name(crl.aki_issuer) << "\n";
    os << "      Authority serial: " << serial_decimal(crl.aki_serial) << "\n";
  }
  if (crl.ext & 0x1000)
    os << "    CRL number" << crit(crl.crit, 0x1000) << ": " << serial_decimal(crl.number) << "\n";
  SignedParts parts;
  if (split_signed(der, parts)) {
    os << "  Signature (" << parts.signature.size() << " octets):\n";
    print_hex_block(os, parts.signature, "    ");
  }
}

void show_request(std::ostream& os, const Bytes& der, const Request& req) {
  os << "Certificate request (PKCS #10):\n";
  os << "  Version: " << req.version + 1 << " (0x" << req.version << ")\n";
  os << "  Subject: " << format_name(req.subject) << "\n";
  print_public_key(os, req.public_key, "  ");
  SignedParts parts;
  if (split_signed(der, parts)) os << "  Signature algorithm: " << sig_alg_name(parts.alg) << "\n";
  os << "  Signature: " << signature_status_text(request_signature_status(der, req)) << "\n";
}

bool show_spkac(std::ostream& os, const Bytes& der) {
  Bytes pub(HYLORN_PUBKEY_SIZE);
  unsigned pub_len = 0;
  char challenge[HYLORN_CHALLENGE_SIZE] = "";
  if (Crypt_Decode_NetscapeCertReq(der.data(), static_cast<unsigned>(der.size()), pub.data(),
                                   &pub_len, challenge) != 0)
    return false;
  pub.resize(std::min<size_t>(pub_len, pub.size()));
  os << "Netscape certificate request (SPKAC):\n";
  os << "  Challenge: \"" << challenge << "\"\n";
  print_public_key(os, pub, "  ");
  SignedParts parts;
  int status = -1;
  if (split_signed(der, parts)) {
    os << "  Signature algorithm: " << sig_alg_name(parts.alg) << "\n";
    status = static_cast<int>(
        Crypt_Ver_Signature(parts.alg, pub.data(), static_cast<unsigned>(pub.size()),
                            parts.tbs.data(), static_cast<unsigned>(parts.tbs.size()),
                            parts.signature.data(), static_cast<unsigned>(parts.signature.size())));
  }
  os << "  Signature: " << signature_status_text(status) << "\n";
  return true;
}

// Which kind the structure suggests, so that a failure is reported by the right decoder:
// a CRL has its times at the top of the signed part, a request ends in [0] attributes,
// an SPKAC is a key and an IA5String challenge, anything else is taken for a certificate.
enum class Kind { kCert, kCrl, kRequest, kSpkac };

Kind guess_kind(const Bytes& der) {
  SignedParts parts;
  Element tbs;
  std::vector<Element> items;
  if (!split_signed(der, parts) || !read_element(parts.tbs.data(), parts.tbs.size(), tbs) ||
      !read_children(tbs, items) || items.empty())
    return Kind::kCert;
  for (const Element& e : items)
    if (e.tag == 0x17 || e.tag == 0x18) return Kind::kCrl;
  if (items.size() == 4 && items[0].tag == 0x02 && items[3].tag == 0xA0) return Kind::kRequest;
  if (items.size() >= 2 && items[0].tag == 0x30 && items[1].tag == 0x16) return Kind::kSpkac;
  return Kind::kCert;
}

void show_one(std::ostream& os, const Bytes& der, const std::string& path) {
  if (der.size() > 0xffffffu) fail(path, "too large");
  Cert cert;
  if (decode_cert(der, cert)) return print_cert(os, der, cert);
  Crl crl;
  if (decode_crl(der, crl)) return print_crl(os, der, crl);
  Request req;
  if (decode_request(der, req)) return show_request(os, der, req);
  if (show_spkac(os, der)) return;
  // Every decoder refused it; run the likely one again so that the error list is its own.
  const char* what = "certificate (Crypt_Decode_Cert)";
  switch (guess_kind(der)) {
    case Kind::kCert:
      decode_cert(der, cert);
      break;
    case Kind::kCrl:
      decode_crl(der, crl);
      what = "CRL (Crypt_Decode_Crl_Init)";
      break;
    case Kind::kRequest:
      decode_request(der, req);
      what = "PKCS #10 request (Crypt_Decode_Pkcs10)";
      break;
    case Kind::kSpkac:
      show_spkac(os, der);
      what = "SPKAC (Crypt_Decode_NetscapeCertReq)";
      break;
  }
  fail_lib(path, std::string("not a certificate, CRL, PKCS #10 request or SPKAC the library can "
                             "read; it looks like a ") +
                     what + ", which says");
}

}  // namespace

void add_show_command(CLI::App& app) {
  auto files = std::make_shared<std::vector<std::string>>();
  auto* cmd = app.add_subcommand(
      "show",
      "Print a certificate, CRL, PKCS #10 request or SPKAC (PEM, DER or base64), every "
      "field and extension; the kind is detected");
  cmd->add_option("files", *files, "Files to show (a PEM file may hold several objects)")
      ->required();
  cmd->callback([files] {
    bool first = true;
    for (const std::string& path : *files)
      for (const Bytes& der : read_der_all(path)) {
        if (!first) std::cout << "\n";
        first = false;
        show_one(std::cout, der, path);
      }
  });
}

}  // namespace hylorn_tool
