// req: a PKCS #10 request from a subject and a key file.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cert.h"
#include "der.h"

namespace hylorn_tool {

bool decode_request(const Bytes& der, Request& out) {
  NameBuffers subject;
  Bytes pub(HYLORN_PUBKEY_SIZE);
  unsigned pub_len = 0, version = 0;
  if (der.empty() || der.size() > 0xffffffffu) return false;
  if (Crypt_Decode_Pkcs10(der.data(), static_cast<unsigned>(der.size()), &version,
                          HYLORN_TOOL_NAME16(subject.slot), pub.data(), &pub_len) != 0)
    return false;
  out.version = version;
  out.subject = subject.name();
  pub.resize(pub_len < pub.size() ? pub_len : pub.size());
  out.public_key = pub;
  return true;
}

int request_signature_status(const Bytes& der, const Request& req) {
  SignedParts parts;
  if (!split_signed(der, parts)) return -1;
  return static_cast<int>(Crypt_Ver_Signature(
      parts.alg, req.public_key.data(), static_cast<unsigned>(req.public_key.size()),
      parts.tbs.data(), static_cast<unsigned>(parts.tbs.size()), parts.signature.data(),
      static_cast<unsigned>(parts.signature.size())));
}

std::string signature_status_text(int status) {
  switch (status) {
    case 0:
      return "valid";
    case 1:
      return "invalid (the RSA operation failed: wrong key or damaged signature)";
    case 2:
      return "invalid (the digest does not match: signed by another key or altered)";
    case 3:
      return "cannot be checked (unsupported signature algorithm)";
    default:
      return "cannot be checked (the signed parts cannot be found)";
  }
}

namespace {

struct ReqOptions {
  std::string key, subject, out = "-", form = "pem";
};

void run_req(const ReqOptions& o) {
  Name subject = parse_subject(o.subject);
  unsigned char pub[HYLORN_PUBKEY_DER_SIZE];
  unsigned pub_len = 0;
  if (Crypt_GetRSAPublicKey(o.key.c_str(), 0, pub, &pub_len) != 0)
    fail_lib(o.key, "cannot read the key file (Crypt_GetRSAPublicKey)");
  NameArgs s(subject);
  Bytes out(HYLORN_PKCS10_DER_SIZE);
  unsigned len = 0;
  if (Crypt_Encode_Pkcs10(0, HYLORN_TOOL_NAME16(s), pub, pub_len, o.key.c_str(), "", out.data(),
                          &len) != 0)
    fail_lib(o.key, "making the request failed (Crypt_Encode_Pkcs10)");
  out.resize(len);
  write_encoded(o.out, out, "CERTIFICATE REQUEST", is_pem(o.form));
}

}  // namespace

void add_req_command(CLI::App& app) {
  auto o = std::make_shared<ReqOptions>();
  auto* cmd = app.add_subcommand(
      "req", "Make a PKCS #10 certificate request (MD5 with RSA) from a subject and a key file");
  cmd->add_option("-k,--key", o->key, "Key file of the requester (from genkey)")->required();
  cmd->add_option("-s,--subj", o->subject,
                  "Subject as /KEY=value/...; keys: C, O, OU, ST, CN, L, title, SN, GN, "
                  "initials, emailAddress, postalAddress, postalCode, postOfficeBox, "
                  "telephoneNumber, telexNumber ('\\/' for a slash in a value)")
      ->required();
  cmd->add_option("-o,--out", o->out, "Request output (default: standard output)");
  add_outform(cmd, o->form);
  cmd->callback([o] { run_req(*o); });
}

}  // namespace hylorn_tool
