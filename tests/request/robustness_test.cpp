// Both request decoders on every truncated prefix and every single-byte change of a valid
// request, each in a block of exactly its size (the sanitizer build catches any read past
// it or any write past a field).
#include "request_fixtures.h"

namespace {

using namespace request_test;

Bytes valid_spkac() {
  return signed_md5(tlv(0x30, cat({spki(key_file().pub), tlv(0x16, bytes_of("challenge"))})));
}

TEST(RequestDecoders, SurviveEveryPrefixAndSingleByteChange) {
  const KeyFile& k = key_file();
  const Name subject = {"DE", "Hylorn", "", "", "Prefix"};
  const struct {
    const char* what;
    Bytes der;
    Decoded (*decode)(const Bytes&);
  } cases[] = {{"PKCS #10", encode(subject, k.pub, k.path), decode_pkcs10},
               {"SPKAC", valid_spkac(), decode_spkac}};
  for (const auto& c : cases) {
    ASSERT_EQ(c.decode(c.der).rc, 0u) << c.what;
    for (std::size_t n = 0; n < c.der.size(); ++n) {
      EXPECT_EQ(c.decode(Bytes(c.der.begin(), c.der.begin() + long(n))).rc, 1u) << c.what << n;
    }
    for (std::size_t i = 0; i < c.der.size(); ++i) {
      for (u8 flip : {0x01, 0x40, 0x80, 0xFF}) {
        Bytes changed = c.der;
        changed[i] ^= flip;
        const Decoded d = c.decode(changed);
        if (d.rc == 0) {
          EXPECT_LE(d.key.size(), 1023u) << c.what << i;
        }
      }
    }
  }
}

}  // namespace
