// Arbitrary bytes as an extension list: under each of the three taggings, every look-up
// by number on what was read, and the conversion into the caller's record. Nothing may
// read past the input, leak or crash; whatever reads must free cleanly.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "x509/extensions.h"
#include "x509/extn_list.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 8192) return 0;
  // An exact copy, so that any read past the input is caught.
  std::vector<unsigned char> der(data, data + size);
  const auto total = static_cast<hylorn::u32>(size);
  for (hylorn::u8 tag :
       {hylorn::kCertExtensionsTag, hylorn::kCrlExtensionsTag, hylorn::kBareExtensions}) {
    hylorn::X509_EXTN_CONTEXT ctx{};
    if (hylorn::Cert_Decode_X509_Extensions_Begin(total, der.data(), &ctx, tag) != 0) {
      check(ctx.head == nullptr);
      continue;
    }
    for (hylorn::u32 number = 0; number <= 62; ++number) {
      if (hylorn::Find_X509_EXTN_By_Number(&ctx, number) == 0) {
        check(ctx.cursor != nullptr);
      }
    }
    check(hylorn::Cert_Decode_X509_Extensions_End(&ctx) == 0 && ctx.head == nullptr);
  }
  const hylorn::DATA_BUFFER in{total, size == 0 ? nullptr : der.data()};
  auto info = std::make_unique<hylorn::CERT_EXTN_INFO>();
  const hylorn::u32 r = hylorn::l2u_extensions(&in, info.get());
  check(r == 0 || r == 1);
  // The private extension has no number: reading never reports it.
  check(info->privateExtensionPresent == 0);
  return 0;
}
