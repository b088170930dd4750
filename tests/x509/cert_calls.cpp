#include "cert_calls.h"

#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

namespace cert_test {

#define IN_SLOTS(n)                                                                         \
  n[0].c_str(), n[1].c_str(), n[2].c_str(), n[3].c_str(), n[4].c_str(), n[5].c_str(),       \
      n[6].c_str(), n[7].c_str(), n[8].c_str(), n[9].c_str(), n[10].c_str(), n[11].c_str(), \
      n[12].c_str(), n[13].c_str(), n[14].c_str(), n[15].c_str()
#define OUT_SLOTS(n)                                                                             \
  n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], n[8], n[9], n[10], n[11], n[12], n[13], n[14], \
      n[15]

namespace {

int policy_length(const Policy& p) {
  return p.length ? *p.length : int(p.oid.size());
}

}  // namespace

unsigned encode_cert(const CertInput& in, Bytes* out) {
  Bytes der(HYLORN_CERT_DER_SIZE);
  unsigned derLen = 0;
  const auto& p = in.policies;
  const unsigned rc = Crypt_Encode_Cert(
      in.version, in.serial.data(), (unsigned short)(in.serial.size()), in.sigAlg, in.params.data(),
      int(in.params.size()), IN_SLOTS(in.issuer), in.notBefore.c_str(), in.notAfter.c_str(),
      IN_SLOTS(in.subject), in.pubKey.data(), (unsigned short)(in.pubKey.size()), nullptr, 0,
      nullptr, 0, in.extFlags, in.critFlags, IN_SLOTS(in.akiIssuer), in.akiSerial.data(),
      int(in.akiSerial.size()), p[0].oid.data(), policy_length(p[0]), p[0].qualifier.c_str(),
      p[1].oid.data(), policy_length(p[1]), p[1].qualifier.c_str(), p[2].oid.data(),
      policy_length(p[2]), p[2].qualifier.c_str(), p[3].oid.data(), policy_length(p[3]),
      p[3].qualifier.c_str(), in.pkupNotBefore.c_str(), in.pkupNotAfter.c_str(), in.cA, in.pathLen,
      in.keyUsage, in.nsCertType, in.setCertType, in.hashedRootKey.data(),
      unsigned(in.hashedRootKey.size()), 0, nullptr, 0, in.keyName.c_str(), "", der.data(),
      &derLen);
  out->assign(der.begin(), der.begin() + (rc == 0 ? derLen : 0));
  return rc;
}

unsigned decode_cert(const Bytes& der, CertOutput* o, u8 fill) {
  std::memset(o, fill, sizeof *o);
  return decode_cert_into(der, o);
}

unsigned decode_cert_into(const Bytes& der, CertOutput* o) {
  return Crypt_Decode_Cert(
      der.data(), unsigned(der.size()), &o->version, o->serial, &o->serialLen, &o->sigAlg,
      o->params, &o->paramsLen, OUT_SLOTS(o->issuer), o->notBefore, o->notAfter,
      OUT_SLOTS(o->subject), o->pubKey, &o->pubKeyLen, o->issuerUID, &o->issuerUIDLen,
      o->subjectUID, &o->subjectUIDLen, o->signature, &o->signatureLen, &o->extFlags, &o->critFlags,
      OUT_SLOTS(o->akiIssuer), o->akiSerial, &o->akiSerialLen, o->policyOid[0], &o->policyOidLen[0],
      o->policyQualifier[0], o->policyOid[1], &o->policyOidLen[1], o->policyQualifier[1],
      o->policyOid[2], &o->policyOidLen[2], o->policyQualifier[2], o->policyOid[3],
      &o->policyOidLen[3], o->policyQualifier[3], o->pkupNotBefore, o->pkupNotAfter, &o->cA,
      &o->pathLen, &o->keyUsage, &o->nsCertType, &o->setCertType, o->hashedRootKey,
      &o->hashedRootKeyLen, &o->policyCount, o->subjectKeyId, &o->subjectKeyIdLen);
}

Name name_of(const char (*slots)[HYLORN_NAME_SIZE]) {
  Name n;
  for (int i = 0; i < 16; ++i) n[i] = slots[i];
  return n;
}

namespace {

// The generator seeds itself from the calendar second, so keys made within one second
// are the same key: wait for the next second until the key is new.
Key make_key(const TempDir& dir, const std::string& name, const std::vector<Bytes>& taken) {
  Key k{dir.path(name), {}};
  for (;;) {
    k.pub.assign(HYLORN_PUBKEY_DER_SIZE, 0);
    Bytes pri(HYLORN_PRIKEY_DER_SIZE);
    unsigned pubLen = 0, priLen = 0;
    if (Crypt_GenRSAKeyPair(k.file.c_str(), 0, k.pub.data(), &pubLen, pri.data(), &priLen)) {
      throw std::runtime_error("Crypt_GenRSAKeyPair");
    }
    k.pub.resize(pubLen);
    if (std::find(taken.begin(), taken.end(), k.pub) == taken.end()) return k;
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
}

}  // namespace

const Pki& pki() {
  static const Pki* p = [] {
    auto* made = new Pki;
    made->root = make_key(made->dir, "root.key", {});
    made->inter = make_key(made->dir, "inter.key", {made->root.pub});
    made->leaf = make_key(made->dir, "leaf.key", {made->root.pub, made->inter.pub});
    made->other =
        make_key(made->dir, "other.key", {made->root.pub, made->inter.pub, made->leaf.pub});
    return made;
  }();
  return *p;
}

Bytes tlv(u8 tag, const Bytes& contents) {
  const std::size_t n = contents.size();
  Bytes out = n < 0x80    ? Bytes{tag, u8(n)}
              : n < 0x100 ? Bytes{tag, 0x81, u8(n)}
                          : Bytes{tag, 0x82, u8(n >> 8), u8(n)};
  out.insert(out.end(), contents.begin(), contents.end());
  return out;
}

Bytes concat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

namespace {

// Header size plus contents length of the element at der[pos].
std::size_t element_size(const Bytes& der, std::size_t pos) {
  const u8 first = der[pos + 1];
  if (first < 0x80) return 2 + first;
  std::size_t n = 0;
  for (int i = 0; i < (first & 0x7F); ++i) n = n << 8 | der[pos + 2 + i];
  return 2 + (first & 0x7F) + n;
}

}  // namespace

std::array<std::pair<std::size_t, std::size_t>, 3> certificate_parts(const Bytes& cert) {
  std::size_t pos = cert[1] < 0x80 ? 2 : 2 + (cert[1] & 0x7F);
  std::array<std::pair<std::size_t, std::size_t>, 3> parts;
  for (auto& p : parts) {
    p = {pos, element_size(cert, pos)};
    pos += p.second;
  }
  return parts;
}

ToolRun run(const std::string& command) {
  ToolRun r{-1, {}};
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return r;
  char chunk[4096];
  std::size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) r.output.append(chunk, n);
  const int status = pclose(pipe);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

bool have_tool(const std::string& name) {
  return run("command -v " + name).status == 0;
}

}  // namespace cert_test
