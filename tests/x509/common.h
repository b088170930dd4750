#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>
#include <vector>

#include "hylorn.h"
#include "support/error_list.h"
#include "support/hex.h"
#include "support/temp_dir.h"

// Tables and records name only the fields that differ from the defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace hylorn_test {

inline Bytes concat(const std::vector<Bytes>& parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
// A DER element with definite length (up to 65,535 contents octets).
inline Bytes tlv(unsigned char tag, const Bytes& contents) {
  const std::size_t n = contents.size();
  return concat({n < 0x80    ? Bytes{tag, (unsigned char)n}
                 : n < 0x100 ? Bytes{tag, 0x81, (unsigned char)n}
                             : Bytes{tag, 0x82, (unsigned char)(n >> 8), (unsigned char)n},
                 contents});
}
inline Bytes seq(const std::vector<Bytes>& parts) {
  return tlv(0x30, concat(parts));
}

struct ToolRun {
  bool ok;
  std::string output;
};
inline ToolRun run(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  ToolRun r{false, {}};
  char chunk[4096];
  for (std::size_t n; pipe != nullptr && (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;) {
    r.output.append(chunk, n);
  }
  r.ok = pipe != nullptr && pclose(pipe) == 0;
  return r;
}
inline void expect_outputs(
    const std::vector<std::pair<std::string, std::vector<std::string>>>& rows) {
  for (const auto& [command, texts] : rows) {
    const ToolRun r = run(command);
    EXPECT_TRUE(r.ok) << command << "\n" << r.output;
    for (const std::string& t : texts) {
      EXPECT_NE(r.output.find(t), std::string::npos) << command << ": " << t << "\n" << r.output;
    }
  }
}

inline void expect_tail(const Entries& tail, const std::string& what) {
  const Entries list = read_errors();
  ASSERT_GE(list.size(), tail.size()) << what << "\n" << error_text();
  EXPECT_EQ(Entries(list.end() - long(tail.size()), list.end()), tail) << what;
}

// Every prefix of der must be refused; every byte changed by each flip goes to changed.
template <class Refused, class Changed>
void sweep(const Bytes& der, Refused refused, Changed changed,
           std::initializer_list<unsigned char> flips = {0x01, 0x80, 0xFF}) {
  for (std::size_t n = 0; n < der.size(); ++n) {
    EXPECT_TRUE(refused(Bytes(der.begin(), der.begin() + long(n)))) << "prefix " << n;
  }
  for (std::size_t i = 0; i < der.size(); ++i) {
    for (unsigned char flip : flips) {
      Bytes altered = der;
      altered[i] ^= flip;
      changed(altered, i);
    }
  }
}

// A library key pair, once per binary: its key file, and key.der for the outside tools.
struct KeyFile {
  TempDir dir;
  std::string path = dir.path("library.key");
  Bytes pub = Bytes(HYLORN_PUBKEY_DER_SIZE), pri = Bytes(HYLORN_PRIKEY_DER_SIZE);
  KeyFile() {
    unsigned pubLen = 0, priLen = 0;
    EXPECT_EQ(Crypt_GenRSAKeyPair(path.c_str(), 0, pub.data(), &pubLen, pri.data(), &priLen), 0u);
    pub.resize(pubLen), pri.resize(priLen);
    write_file(dir.path("key.der"), pri);
  }
};
inline const KeyFile& library_key() {
  static const KeyFile k;
  return k;
}

}  // namespace hylorn_test
