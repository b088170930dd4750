// hylorn ca: init, issue, revoke, crl, list. The authority lives in one folder:
//   ca.key        the CA's private key file (mode 0600)
//   ca.pem        the CA's certificate
//   ca.db         SQLite: certificates, revocations, next serial, next CRL number
//   certs/N.pem   every certificate handed out, by serial
//   crl.pem       the latest CRL
//
// Crash safety of `ca issue`. A certificate is handed out when certs/N.pem exists. The
// issue runs in three steps:
//   1. one transaction reserves the serial (next_serial + 1), signs, and records the
//      certificate as "pending" with its DER;
//   2. certs/N.pem is written through a temporary file and an atomic rename;
//   3. one transaction marks it "valid".
// Killed inside step 1 (before or during COMMIT), SQLite rolls the transaction back:
// no serial is taken and nothing was handed out. Killed between 1 and 3, the record is
// "pending": its serial is never given again, and the next `ca` command settles it by
// looking for certs/N.pem holding exactly that DER ("valid": it was handed out) or not
// ("void": it never left the authority; a void record whose file appears later, from an
// issue that was still running, turns valid). So a serial is never reused, no
// certificate is counted as issued unless its file exists, and none that exists goes
// unrecorded.
// The copy at --out is written last, from the recorded DER.
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <memory>

#include "ca_db.h"
#include "cert.h"
#include "der.h"

namespace hylorn_tool {

namespace {

struct Paths {
  std::string dir;
  std::string key() const { return dir + "/ca.key"; }
  std::string cert() const { return dir + "/ca.pem"; }
  std::string db() const { return dir + "/ca.db"; }
  std::string certs() const { return dir + "/certs"; }
  std::string issued(std::int64_t serial) const {
    return certs() + "/" + std::to_string(serial) + ".pem";
  }
  std::string crl() const { return dir + "/crl.pem"; }
};

std::string pem_text(const Bytes& der, const char* label) {
  return to_pem(der, label);
}

Bytes as_bytes(const std::string& s) {
  return Bytes(s.begin(), s.end());
}

// An open authority: its certificate, its key file checked against it, its database.
struct Authority {
  Paths paths;
  Bytes cert_der;
  Cert cert;
  std::unique_ptr<CaDb> db;

  explicit Authority(const std::string& dir) : paths{dir} {
    if (!file_exists(paths.db()))
      fail(dir, "no authority here (ca.db is missing; run 'hylorn ca init')");
    db = std::make_unique<CaDb>(paths.db());
    cert_der = read_der(paths.cert());
    cert = load_cert(cert_der, paths.cert());
    if (key_file_public(paths.key()) != cert.public_key)
      fail(paths.key(), "wrong CA key: it does not belong to the certificate " + paths.cert());
    settle_pending();
  }

  // Step 1 done, step 3 not: decide from the file whether it was handed out. Void ones
  // are looked at again, in case an issue still running wrote its file after a settle.
  void settle_pending() {
    db->begin();
    for (const CertRow& row : db->rows("c.status IN ('pending', 'void')")) {
      bool handed_out = false;
      try {
        handed_out = read_der(paths.issued(row.serial)) == row.der;
      } catch (const ToolError&) {
      }
      std::string status = handed_out ? "valid" : "void";
      if (status == row.status) continue;
      db->set_status(row.serial, status);
      std::cerr << "note: certificate " << row.serial << " of an interrupted issue is "
                << (handed_out ? "recorded as issued" : "void (it was never handed out)") << "\n";
    }
    db->commit("settle-commit");
  }
};

// ---- issuing ----

struct IssueOptions {
  std::string dir, request, subject, pubkey, out = "-", form = "pem";
  std::string not_before, not_after, key_usage, md = "sha1";
  long days = 365;
  bool ca = false;
  int path_len = -1;
  std::vector<std::string> policies;
};

void add_issue_options(CLI::App* cmd, IssueOptions& o, bool for_init) {
  cmd->add_option("--days", o.days, "Validity in days from now (default 365)")
      ->check(CLI::Range(1L, 36500L));
  cmd->add_option("--not-before", o.not_before, "Start of validity, YYYYMMDDHHMMSS (UTC)");
  cmd->add_option("--not-after", o.not_after, "End of validity, YYYYMMDDHHMMSS (UTC)");
  cmd->add_option("--pathlen", o.path_len, "CA path length constraint (default: none)")
      ->check(CLI::Range(0, 127));
  cmd->add_option("--key-usage", o.key_usage,
                  "Comma-separated: digitalSignature, nonRepudiation, keyEncipherment, "
                  "dataEncipherment, keyAgreement, keyCertSign, cRLSign, encipherOnly, "
                  "decipherOnly (default: keyCertSign,cRLSign for a CA, else "
                  "digitalSignature,keyEncipherment)");
  cmd->add_option("--policy", o.policies,
                  "Certificate policy OID[=CPS URI], up to four (repeat the option)");
  cmd->add_option("--md", o.md, "Signature digest: sha1 (default), md5 or md2")
      ->check(CLI::IsMember({"sha1", "md5", "md2"}));
  if (!for_init) cmd->add_flag("--ca", o.ca, "Issue a CA certificate (basicConstraints cA)");
}

// The validity, the extensions and the algorithm of a new certificate, from the options.
Cert cert_from_options(const IssueOptions& o) {
  Cert c;
  c.sig_alg = static_cast<unsigned>(digest_number(o.md));
  std::string now = now_text();
  c.not_before = o.not_before.empty() ? now : o.not_before;
  check_time(c.not_before, "--not-before");
  c.not_after = o.not_after.empty() ? add_days(c.not_before, o.days) : o.not_after;
  check_time(c.not_after, "--not-after");
  if (c.not_after <= c.not_before)
    fail("validity " + c.not_before + " to " + c.not_after,
         "--not-after must be after --not-before");
  if (o.path_len >= 0 && !o.ca) fail("--pathlen", "only a CA certificate has a path length");
  c.ca = o.ca;
  c.path_len = o.path_len;
  c.ext_flags = kExtBasicConstraints | kExtKeyUsage;
  // A relying party must understand both, so both are critical (RFC 5280 4.2.1.3, 4.2.1.9).
  c.crit_flags = kExtBasicConstraints | kExtKeyUsage;
  c.key_usage = !o.key_usage.empty() ? parse_flags(o.key_usage, kKeyUsageNames, 9, "--key-usage")
                : o.ca               ? 0x04u | 0x02u
                                     : 0x80u | 0x20u;
  if (o.policies.size() > 4) fail("--policy", "at most four policies");
  for (const std::string& p : o.policies) {
    size_t eq = p.find('=');
    Policy policy{oid_octets(p.substr(0, eq)), eq == std::string::npos ? "" : p.substr(eq + 1)};
    if (policy.oid.size() > HYLORN_POLICY_OID_SIZE) fail("--policy " + p, "identifier too long");
    if (policy.qualifier.size() >= HYLORN_POLICY_QUALIFIER_SIZE)
      fail("--policy " + p, "qualifier too long");
    c.policies.push_back(policy);
  }
  if (!c.policies.empty()) c.ext_flags |= kExtPolicies;
  return c;
}

// Subject and key of the new certificate: from a request (whose signature must prove
// the key) or from --subj and --pubkey.
void take_subject(const IssueOptions& o, Cert& c) {
  if (!o.request.empty()) {
    if (!o.subject.empty() || !o.pubkey.empty())
      fail("ca issue", "give either --in or --subj with --pubkey, not both");
    Bytes der = read_der(o.request);
    Request req;
    if (!decode_request(der, req))
      fail_lib(o.request, "not a PKCS #10 request (Crypt_Decode_Pkcs10)");
    int status = request_signature_status(der, req);
    if (status != 0) fail(o.request, "request signature " + signature_status_text(status));
    c.subject = req.subject;
    c.public_key = req.public_key;
  } else {
    if (o.subject.empty() || o.pubkey.empty())
      fail("ca issue", "give a request with --in, or --subj and --pubkey");
    c.subject = parse_subject(o.subject);
    c.public_key = read_der(o.pubkey);
    unsigned bits = 0;
    unsigned char n[128], e[128];
    if (Crypt_Decode_Pubkey_Info(c.public_key.data(), static_cast<int>(c.public_key.size()), &bits,
                                 n, e) != 0)
      fail_lib(o.pubkey, "not an RSA public key (Crypt_Decode_Pubkey_Info)");
  }
}

void run_issue(const IssueOptions& o) {
  Authority ca(o.dir);
  Cert c = cert_from_options(o);
  take_subject(o, c);
  if (!ca.cert.ca) fail(ca.paths.cert(), "the authority's certificate is not a CA certificate");
  c.issuer = ca.cert.subject;
  // The authority key identifier names the CA certificate by its issuer and serial.
  c.ext_flags |= kExtAuthorityKeyId;
  c.aki_issuer = ca.cert.issuer;
  c.aki_serial = ca.cert.serial;

  CertRow row;
  ca.db->begin();
  row.serial = ca.db->take_serial();
  c.serial = serial_octets(static_cast<std::uint64_t>(row.serial));
  row.der = encode_cert(c, ca.paths.key());
  crash_point("issue-signed");
  row.subject = format_name(c.subject);
  row.not_before = c.not_before;
  row.not_after = c.not_after;
  row.status = "pending";
  ca.db->add_cert(row);
  crash_point("issue-recorded");
  ca.db->commit("issue-commit");
  crash_point("issue-committed");
  write_file(ca.paths.issued(row.serial), as_bytes(pem_text(row.der, "CERTIFICATE")));
  crash_point("issue-written");
  ca.db->begin();
  ca.db->set_status(row.serial, "valid");
  ca.db->commit("issue-final-commit");
  try {
    write_encoded(o.out, row.der, "CERTIFICATE", is_pem(o.form));
  } catch (const ToolError& e) {
    throw ToolError(std::string(e.what()) + "\n  (certificate " + std::to_string(row.serial) +
                    " is issued all the same: " + ca.paths.issued(row.serial) + ")");
  }
  std::cerr << "issued certificate " << row.serial << " to " << row.subject << ", valid "
            << readable_time(c.not_before) << " to " << readable_time(c.not_after) << "\n";
}

// ---- init ----

struct InitOptions {
  IssueOptions issue;
  std::string import_key, import_cert;
};

void make_key(const Paths& p, const std::string& import_key) {
  if (file_exists(p.key()) && ::unlink(p.key().c_str()) != 0)
    fail(p.key(), "cannot remove a key left by an interrupted init");
  mode_t old = ::umask(077);
  if (!import_key.empty()) {
    Bytes key = read_file(import_key);
    ::umask(old);
    write_file(p.key(), key, 0600);
    explicit_bzero(key.data(), key.size());
    return;
  }
  unsigned char pub[HYLORN_PUBKEY_DER_SIZE], pri[HYLORN_PRIKEY_DER_SIZE];
  unsigned pub_len = 0, pri_len = 0;
  unsigned r = Crypt_GenRSAKeyPair(p.key().c_str(), 0, pub, &pub_len, pri, &pri_len);
  ::umask(old);
  explicit_bzero(pri, sizeof pri);
  if (r != 0) fail_lib(p.key(), "key generation failed (Crypt_GenRSAKeyPair)");
}

// The database is made under a temporary name and renamed last, so a folder holds an
// authority exactly when ca.db exists, and an interrupted init can simply run again.
void run_init(InitOptions& o) {
  Paths p{o.issue.dir};
  if (file_exists(p.db()))
    fail(p.dir, "an authority exists here already (ca.db); refusing to replace it");
  if (!o.import_cert.empty() && o.import_key.empty())
    fail("ca init", "--cert needs the --key that belongs to it");
  ::mkdir(p.dir.c_str(), 0755);
  if (::mkdir(p.certs().c_str(), 0755) != 0 && errno != EEXIST)
    fail(p.certs(), "cannot create the folder");
  Bytes cert_der;
  std::int64_t next_serial = 1;
  if (!o.import_cert.empty()) {
    cert_der = read_der(o.import_cert);
    Cert cert = load_cert(cert_der, o.import_cert);
    if (!cert.ca) fail(o.import_cert, "not a CA certificate (basicConstraints cA is not set)");
    if (key_file_public(o.import_key) != cert.public_key)
      fail(o.import_key, "wrong CA key: it does not belong to the certificate " + o.import_cert);
    make_key(p, o.import_key);
  } else {
    if (o.issue.subject.empty()) fail("ca init", "--subj is required");
    o.issue.ca = true;
    Cert c = cert_from_options(o.issue);
    c.subject = c.issuer = c.aki_issuer = parse_subject(o.issue.subject);
    make_key(p, o.import_key);
    c.public_key = key_file_public(p.key());
    c.serial = c.aki_serial = serial_octets(1);
    c.ext_flags |= kExtAuthorityKeyId;
    cert_der = encode_cert(c, p.key());
    next_serial = 2;
  }
  write_file(p.cert(), as_bytes(pem_text(cert_der, "CERTIFICATE")));
  std::string temp = p.db() + ".new";
  ::unlink(temp.c_str());
  CaDb::create(temp, next_serial);
  if (next_serial == 2) {  // the self-signed certificate is serial 1 of this authority
    CaDb db(temp);
    Cert c = load_cert(cert_der, p.cert());
    db.begin();
    db.add_cert({1, format_name(c.subject), c.not_before, c.not_after, "valid", cert_der, "", -1});
    db.commit("init-commit");
    write_file(p.issued(1), as_bytes(pem_text(cert_der, "CERTIFICATE")));
  }
  if (::rename(temp.c_str(), p.db().c_str()) != 0)
    fail(p.db(), "cannot move the database into place");
  std::cerr << "made the authority in " << p.dir << "\n";
}

// ---- revoke ----

struct RevokeOptions {
  std::string dir, serial, reason = "unspecified", date;
};

std::int64_t parse_serial(const std::string& text) {
  bool hex_form = text.rfind("0x", 0) == 0;
  std::string digits = hex_form ? text.substr(2) : text;
  const char* allowed = hex_form ? "0123456789abcdefABCDEF" : "0123456789";
  if (digits.empty() || digits.size() > 15 ||
      digits.find_first_not_of(allowed) != std::string::npos)
    fail("serial \"" + text + "\"", "not a positive number");
  std::int64_t v = std::stoll(digits, nullptr, hex_form ? 16 : 10);
  if (v < 1) fail("serial \"" + text + "\"", "not a positive number");
  return v;
}

void run_revoke(const RevokeOptions& o) {
  std::int64_t serial = parse_serial(o.serial);
  int reason = reason_code(o.reason);
  std::string date = o.date.empty() ? now_text() : o.date;
  check_time(date, "--date");
  Authority ca(o.dir);
  ca.db->begin();
  auto row = ca.db->find(serial);
  if (!row) fail(o.dir, "serial " + o.serial + " was never issued by this authority");
  if (row->status == "revoked")
    fail(o.dir,
         "serial " + o.serial + " is revoked already (" + readable_time(row->revoked_at) + ")");
  if (row->status != "valid") fail(o.dir, "serial " + o.serial + " was never handed out");
  ca.db->add_revocation(serial, date, reason);
  ca.db->set_status(serial, "revoked");
  ca.db->commit("revoke-commit");
  std::cerr << "revoked certificate " << serial << " (" << row->subject << "), reason "
            << reason_name(reason) << "\n";
}

// ---- crl ----

struct CrlOptions {
  std::string dir, out, form = "pem", md = "sha1";
  long days = 30;
};

void run_crl(const CrlOptions& o) {
  Authority ca(o.dir);
  ca.db->begin();
  std::int64_t number = ca.db->take_crl_number();
  std::vector<CertRow> revoked = ca.db->rows("c.status = 'revoked'");
  std::string now = now_text();
  std::string next = add_days(now, o.days);
  NameArgs issuer(ca.cert.subject), aki(ca.cert.issuer);
  const Bytes params{0x05, 0x00};
  Crypt_Encode_Crl_Init(1, static_cast<unsigned short>(digest_number(o.md)), params.data(), 2,
                        HYLORN_TOOL_NAME16(issuer), now.c_str(), next.c_str());
  for (const CertRow& row : revoked) {
    Bytes serial = serial_octets(static_cast<std::uint64_t>(row.serial));
    // An unspecified reason is left out, as RFC 5280 5.3.1 asks.
    unsigned flags = row.reason > 0 ? 0x0400u : 0u;
    if (Crypt_Encode_Crl_Update(serial.data(), static_cast<unsigned>(serial.size()),
                                row.revoked_at.c_str(), flags, 0,
                                static_cast<unsigned>(row.reason > 0 ? row.reason : 0), "") != 0)
      fail_lib(o.dir, "adding serial " + std::to_string(row.serial) +
                          " to the CRL failed (Crypt_Encode_Crl_Update)");
  }
  Bytes crl_number = serial_octets(static_cast<std::uint64_t>(number));
  Bytes out(8192 + 64 * revoked.size());
  unsigned len = 0;
  if (Crypt_Encode_Crl_Final(0x0001 | 0x1000, 0, HYLORN_TOOL_NAME16(aki), ca.cert.serial.data(),
                             static_cast<int>(ca.cert.serial.size()), crl_number.data(),
                             static_cast<unsigned>(crl_number.size()), ca.paths.key().c_str(), "",
                             out.data(), &len) != 0)
    fail_lib(ca.paths.key(), "signing the CRL failed (Crypt_Encode_Crl_Final)");
  out.resize(len);
  ca.db->commit("crl-commit");
  write_file(ca.paths.crl(), as_bytes(pem_text(out, "X509 CRL")));
  if (!o.out.empty()) write_encoded(o.out, out, "X509 CRL", is_pem(o.form));
  std::cerr << "CRL number " << number << " lists " << revoked.size()
            << " revoked certificate(s); next update " << readable_time(next) << "\n";
}

// ---- list ----

void run_list(const std::string& dir) {
  Authority ca(dir);
  std::printf("authority: %s\n", format_name(ca.cert.subject).c_str());
  std::printf("next serial: %lld\n", static_cast<long long>(ca.db->next_serial()));
  std::printf("%-8s %-8s %-20s %s\n", "serial", "status", "not after", "subject");
  for (const CertRow& row : ca.db->rows()) {
    std::printf("%-8lld %-8s %-20s %s\n", static_cast<long long>(row.serial), row.status.c_str(),
                readable_time(row.not_after).substr(0, 19).c_str(), row.subject.c_str());
    if (row.status == "revoked")
      std::printf("         revoked %s, reason %s\n", readable_time(row.revoked_at).c_str(),
                  reason_name(row.reason));
  }
}

}  // namespace

void add_ca_commands(CLI::App& app) {
  auto* ca =
      app.add_subcommand("ca", "A small certification authority kept in a folder with SQLite");
  ca->require_subcommand(1);

  auto init = std::make_shared<InitOptions>();
  auto* i = ca->add_subcommand(
      "init",
      "Make an authority in DIR: its key, its self-signed certificate and its database "
      "(or import a key and a CA certificate issued elsewhere)");
  i->add_option("dir", init->issue.dir, "Folder of the authority")->required();
  i->add_option("-s,--subj", init->issue.subject,
                "Subject of the self-signed certificate (/C=../O=../CN=..)");
  i->add_option("--key", init->import_key, "Use this key file instead of making one");
  i->add_option("--cert", init->import_cert,
                "Use this CA certificate (issued by another authority)");
  add_issue_options(i, init->issue, true);
  i->callback([init] { run_init(*init); });

  auto issue = std::make_shared<IssueOptions>();
  auto* s = ca->add_subcommand(
      "issue",
      "Issue a certificate with the next serial, from a PKCS #10 request or from "
      "--subj and --pubkey");
  s->add_option("dir", issue->dir, "Folder of the authority")->required();
  s->add_option("-i,--in", issue->request, "PKCS #10 request (its signature is checked)");
  s->add_option("-s,--subj", issue->subject, "Subject, when there is no request");
  s->add_option("--pubkey", issue->pubkey, "RSA public key, when there is no request");
  s->add_option("-o,--out", issue->out, "Certificate output (default: standard output)");
  add_outform(s, issue->form);
  add_issue_options(s, *issue, false);
  s->callback([issue] { run_issue(*issue); });

  auto revoke = std::make_shared<RevokeOptions>();
  auto* r = ca->add_subcommand("revoke", "Record the revocation of an issued certificate");
  r->add_option("dir", revoke->dir, "Folder of the authority")->required();
  r->add_option("serial", revoke->serial, "Serial number (decimal, or 0x hex)")->required();
  r->add_option("-r,--reason", revoke->reason,
                "unspecified (default), keyCompromise, cACompromise, affiliationChanged, "
                "superseded, cessationOfOperation, certificateHold, removeFromCRL, "
                "privilegeWithdrawn, aACompromise");
  r->add_option("--date", revoke->date, "Revocation time, YYYYMMDDHHMMSS (default: now)");
  r->callback([revoke] { run_revoke(*revoke); });

  auto crl = std::make_shared<CrlOptions>();
  auto* c = ca->add_subcommand(
      "crl", "Sign a CRL of every revoked certificate with the next CRL number (into DIR/crl.pem)");
  c->add_option("dir", crl->dir, "Folder of the authority")->required();
  c->add_option("-o,--out", crl->out, "Also write the CRL here");
  c->add_option("--days", crl->days, "Days until the next update (default 30)")
      ->check(CLI::Range(1L, 3650L));
  c->add_option("--md", crl->md, "Signature digest: sha1 (default), md5 or md2")
      ->check(CLI::IsMember({"sha1", "md5", "md2"}));
  add_outform(c, crl->form);
  c->callback([crl] { run_crl(*crl); });

  auto list_dir = std::make_shared<std::string>();
  auto* l = ca->add_subcommand("list", "List the certificates of an authority");
  l->add_option("dir", *list_dir, "Folder of the authority")->required();
  l->callback([list_dir] { run_list(*list_dir); });
}

}  // namespace hylorn_tool
