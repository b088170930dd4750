// verify: a certificate against its issuer chain, each finding in words.
// chain: two certificates as a DER SET, or wrapped in PKCS #7.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cert.h"
#include "der.h"

namespace hylorn_tool {

namespace {

struct Loaded {
  std::string path;
  Bytes der;
  Cert cert;
  // The common name when there is one: findings stay readable.
  std::string who() const {
    return cert.subject[4].empty() ? format_name(cert.subject) : "\"" + cert.subject[4] + "\"";
  }
};

std::vector<Loaded> load_all(const std::vector<std::string>& paths) {
  std::vector<Loaded> out;
  for (const std::string& path : paths)
    for (Bytes& der : read_der_all(path)) {
      Cert c = load_cert(der, path);
      out.push_back({path, std::move(der), std::move(c)});
    }
  return out;
}

struct VerifyOptions {
  std::string cert, at;
  std::vector<std::string> roots, untrusted, crls;
};

// Collects findings; a failed one makes the whole verification fail.
struct Report {
  int problems = 0;
  void ok(const std::string& text) { std::cout << "  ok      " << text << "\n"; }
  void bad(const std::string& text) {
    std::cout << "  FAILED  " << text << "\n";
    ++problems;
  }
  void note(const std::string& text) { std::cout << "  note    " << text << "\n"; }
};

// Leaf first, anchor last: each next certificate is the one whose subject is the issuer
// of the previous, taken from the intermediates and then the trusted roots.
std::vector<const Loaded*> build_path(const Loaded& leaf, const std::vector<Loaded>& untrusted,
                                      const std::vector<Loaded>& roots, Report& report) {
  std::vector<const Loaded*> path{&leaf};
  for (int depth = 0; depth < 10; ++depth) {
    const Loaded* cur = path.back();
    for (const Loaded& r : roots)
      if (r.cert.subject == cur->cert.issuer) {
        if (r.der != cur->der) path.push_back(&r);
        return path;
      }
    const Loaded* next = nullptr;
    for (const Loaded& u : untrusted)
      if (u.cert.subject == cur->cert.issuer && u.der != cur->der) next = &u;
    if (!next) {
      report.bad("no certificate of " + format_name(cur->cert.issuer) + " (issuer of " +
                 cur->who() + ") among the given ones: the chain does not reach a trusted root");
      return path;
    }
    path.push_back(next);
  }
  report.bad("the chain is longer than ten certificates");
  return path;
}

void check_signature(const Loaded& c, const Loaded& issuer, Report& report) {
  unsigned r =
      Crypt_Ver_Cert_ByRootCert(c.der.data(), static_cast<unsigned>(c.der.size()),
                                issuer.der.data(), static_cast<unsigned>(issuer.der.size()));
  std::string what = "signature on " + c.who() + " by the key of " + issuer.who();
  if (r == 0)
    report.ok(what + " is valid");
  else
    report.bad(what + " does not verify");
}

void check_dates(const Loaded& c, const std::string& now, Report& report) {
  std::string span = readable_time(c.cert.not_before) + " to " + readable_time(c.cert.not_after);
  if (now < c.cert.not_before)
    report.bad(c.who() + " is not yet valid (" + span + ")");
  else if (now > c.cert.not_after)
    report.bad(c.who() + " has expired (" + span + ")");
  else
    report.ok(c.who() + " is within its validity (" + span + ")");
}

// An issuer must be a CA, may sign certificates, and must allow the CAs below it.
void check_issuer(const Loaded& c, int cas_below, Report& report) {
  const Cert& k = c.cert;
  if (!(k.ext_flags & kExtBasicConstraints) || !k.ca) {
    report.bad(c.who() + " issues certificates but is not a CA (basicConstraints cA is not TRUE)");
  } else if (k.path_len >= 0 && cas_below > k.path_len) {
    report.bad(c.who() + " allows " + std::to_string(k.path_len) +
               " CA(s) below it, the chain has " + std::to_string(cas_below));
  } else {
    report.ok(c.who() + " is a CA" +
              (k.path_len >= 0 ? " with path length " + std::to_string(k.path_len) : ""));
  }
  if (!(k.ext_flags & kExtKeyUsage))
    report.note(c.who() + " has no key usage extension");
  else if (k.key_usage & 0x04)
    report.ok(c.who() + " may sign certificates (keyCertSign)");
  else
    report.bad(c.who() + " lacks keyCertSign in its key usage");
}

// Revocation of c by the CRLs its issuer signed.
void check_revocation(const Loaded& c, const Loaded& issuer, const std::vector<Bytes>& crls,
                      const std::string& now, Report& report) {
  bool checked = false;
  for (const Bytes& der : crls) {
    Crl crl;
    if (!decode_crl(der, crl)) fail_lib("CRL", "does not decode (Crypt_Decode_Crl_Init)");
    if (crl.issuer != issuer.cert.subject) continue;
    SignedParts parts;
    unsigned sig = split_signed(der, parts)
                       ? Crypt_Ver_Signature_ByCert(
                             parts.alg, issuer.der.data(), static_cast<unsigned>(issuer.der.size()),
                             parts.tbs.data(), static_cast<unsigned>(parts.tbs.size()),
                             parts.signature.data(), static_cast<unsigned>(parts.signature.size()))
                       : 1;
    if (sig != 0) {
      report.bad("the CRL of " + issuer.who() + " does not verify with its key; ignored");
      continue;
    }
    checked = true;
    report.ok("the CRL of " + issuer.who() + " (issued " + readable_time(crl.this_update) +
              ") is signed by it");
    if (!crl.next_update.empty() && now > crl.next_update)
      report.bad("that CRL is out of date (next update was due " + readable_time(crl.next_update) +
                 ")");
    bool revoked = false;
    for (const CrlEntry& e : crl.entries)
      if (e.serial == c.cert.serial) {
        revoked = true;
        report.bad(c.who() + " (serial " + serial_decimal(e.serial) + ") was revoked " +
                   readable_time(e.date) +
                   ((e.ext & 0x0400)
                        ? ", reason " + std::string(reason_name(static_cast<int>(e.reason)))
                        : ""));
      }
    if (!revoked)
      report.ok(c.who() + " (serial " + serial_decimal(c.cert.serial) + ") is not revoked");
  }
  if (!checked && !crls.empty())
    report.note("no CRL of " + issuer.who() + ": revocation of " + c.who() + " not checked");
}

void run_verify(const VerifyOptions& o) {
  std::string now = o.at.empty() ? now_text() : o.at;
  check_time(now, "--at");
  Bytes leaf_der = read_der(o.cert);
  Loaded leaf{o.cert, leaf_der, load_cert(leaf_der, o.cert)};
  std::vector<Loaded> roots = load_all(o.roots), untrusted = load_all(o.untrusted);
  std::vector<Bytes> crls;
  for (const std::string& path : o.crls)
    for (Bytes& der : read_der_all(path)) crls.push_back(std::move(der));

  std::cout << o.cert << ": " << leaf.who() << "\n";
  Report report;
  std::vector<const Loaded*> path = build_path(leaf, untrusted, roots, report);
  for (size_t i = 0; i < path.size(); ++i) {
    const Loaded& c = *path[i];
    check_dates(c, now, report);
    if (i + 1 < path.size()) {
      const Loaded& issuer = *path[i + 1];
      check_signature(c, issuer, report);
      check_issuer(issuer, static_cast<int>(i), report);
      check_revocation(c, issuer, crls, now, report);
    } else if (c.cert.subject == c.cert.issuer) {
      // The anchor is trusted as given; its self-signature still shows it is intact.
      check_signature(c, c, report);
    }
  }
  if (report.problems)
    fail(o.cert, "verification FAILED with " + std::to_string(report.problems) + " problem(s)");
  std::cout << o.cert << ": OK, a chain of " << path.size() << " certificate(s) verifies\n";
}

struct ChainOptions {
  std::string first, second, out = "-", form = "pem";
  bool pkcs7 = false;
};

void run_chain(const ChainOptions& o) {
  Bytes a = read_der(o.first), b = read_der(o.second);
  for (const auto* p : {&o.first, &o.second}) {
    Bytes der = p == &o.first ? a : b;
    load_cert(der, *p);
    if (der.size() > HYLORN_CHAIN_SLOT_SIZE)
      fail(*p, "certificate longer than a chain slot (" + std::to_string(HYLORN_CHAIN_SLOT_SIZE) +
                   " octets)");
  }
  Bytes set(HYLORN_CHAIN_SIZE);
  unsigned len = 0;
  if (Crypt_Gen_Cert_Chain(a.data(), static_cast<unsigned>(a.size()), b.data(),
                           static_cast<unsigned>(b.size()), set.data(), &len) != 0)
    fail_lib(o.first, "joining the certificates failed (Crypt_Gen_Cert_Chain)");
  set.resize(len);
  if (!o.pkcs7) return write_encoded(o.out, set, "CERTIFICATE SET", is_pem(o.form));
  Bytes p7(HYLORN_PKCS7_CHAIN_SIZE);
  if (Crypt_Gen_Ie_Cert_Chain(set.data(), static_cast<unsigned>(set.size()), p7.data(), &len) != 0)
    fail_lib(o.first, "wrapping the chain in PKCS #7 failed (Crypt_Gen_Ie_Cert_Chain)");
  p7.resize(len);
  write_encoded(o.out, p7, "PKCS7", is_pem(o.form));
}

}  // namespace

void add_verify_commands(CLI::App& app) {
  auto v = std::make_shared<VerifyOptions>();
  auto* cmd = app.add_subcommand(
      "verify",
      "Verify a certificate against its issuer chain: signatures, validity dates, CA "
      "constraints and key usage, and revocation when CRLs are given");
  cmd->add_option("cert", v->cert, "Certificate to verify")->required();
  cmd->add_option("-r,--root", v->roots, "Trusted root certificate(s)")->required();
  cmd->add_option("-u,--untrusted", v->untrusted, "Intermediate CA certificate(s)");
  cmd->add_option("-c,--crl", v->crls, "CRL(s) to check revocation against");
  cmd->add_option("--at", v->at, "Verify as of this time, YYYYMMDDHHMMSS (default: now)");
  cmd->callback([v] { run_verify(*v); });

  auto c = std::make_shared<ChainOptions>();
  auto* ch = app.add_subcommand(
      "chain", "Join two certificates into a DER SET, or a PKCS #7 certificate chain (--pkcs7)");
  ch->add_option("first", c->first, "First certificate (e.g. the end entity)")->required();
  ch->add_option("second", c->second, "Second certificate (e.g. its issuer)")->required();
  ch->add_option("-o,--out", c->out, "Output (default: standard output)");
  ch->add_flag("--pkcs7", c->pkcs7, "Wrap the chain as certificates-only PKCS #7 SignedData");
  add_outform(ch, c->form);
  ch->callback([c] { run_chain(*c); });
}

}  // namespace hylorn_tool
