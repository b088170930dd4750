// PEM armour: DER bytes as base64 lines of 64 characters between the caller's header and
// footer lines, and back. The armour is loose on purpose: header and footer texts are
// whatever the caller passes, and on reading only the dashes around the body are looked
// for, never the label between them.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "frame/base64.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "hylorn.h"

namespace hylorn {
namespace {

constexpr std::size_t kLineChars = 64;

const char* or_empty(const char* text) {
  return text ? text : "";
}

// Writes len characters of text and CR LF at out + *at.
void put_line(char* out, std::size_t* at, const char* text, std::size_t len) {
  std::memcpy(out + *at, text, len);
  std::memcpy(out + *at + len, "\r\n", 2);
  *at += len + 2;
}

u32 der_to_pem(const u8* der, u32 derLen, char* out, u32* outLen, const char* header,
               const char* footer) {
  ErrorScope err(154);
  const std::size_t body_len = 4 * ((std::size_t{derLen} + 2) / 3);
  char* body = static_cast<char*>(std::malloc(body_len + 1));
  if (body == nullptr) return 1;  // reported by the result alone: the list stays empty
  auto free_body = on_exit([&] { std::free(body); });

  std::size_t at = 0;
  if (*header != '\0') put_line(out, &at, header, std::strlen(header));
  if (base64_encode(der, derLen, body) != 0) return err.fail(1, "base64_encode");
  // Full lines of 64, then the rest (if any) as one shorter line.
  for (std::size_t i = 0; i < body_len; i += kLineChars)
    put_line(out, &at, body + i, std::min(kLineChars, body_len - i));
  if (*footer != '\0') put_line(out, &at, footer, std::strlen(footer));
  out[at] = '\0';
  *outLen = static_cast<u32>(at);
  return 0;
}

// Where the base64 body of pem[0, n) starts, and whether a dash must end it.
struct Body {
  std::size_t start = 0;
  bool armoured = false;
};

const char* find_dash(const char* pem, std::size_t from, std::size_t n) {
  return static_cast<const char*>(std::memchr(pem + from, '-', n - from));
}

// Text without any dash is bare base64. Otherwise the first dash opens the header line
// (its five dashes are taken on trust), the next dash after those five closes it, and the
// body starts five characters further on. False when the closing dash is missing.
bool find_body(const char* pem, std::size_t n, Body* body) {
  if (n == 0) return true;
  const char* open = find_dash(pem, 0, n);
  if (open == nullptr) return true;
  const std::size_t label = static_cast<std::size_t>(open - pem) + 5;
  if (label >= n) return false;
  const char* close = find_dash(pem, label, n);
  if (close == nullptr) return false;
  body->start = static_cast<std::size_t>(close - pem) + 5;
  body->armoured = true;
  return true;
}

// Copies the alphabet and "=" characters of the body into text (zero-terminated),
// skipping line ends and blanks. An armoured body must end at a dash (the footer line).
bool collect_body(const char* pem, std::size_t n, const Body& body, char* text) {
  std::size_t len = 0;
  bool ended = !body.armoured;
  for (std::size_t p = body.start; p < n; ++p) {
    if (body.armoured && pem[p] == '-') {
      ended = true;
      break;
    }
    if (is_base64_char(pem[p])) text[len++] = pem[p];
  }
  text[len] = '\0';
  return ended;
}

u32 pem_to_der(const char* pem, i32 pemLen, u8* der, u32* derLen) {
  ErrorScope err(155);
  // A negative length cannot size the scratch: refused like a failed allocation.
  if (pemLen < 0) return 1;
  const std::size_t n = pem ? static_cast<std::size_t>(pemLen) : 0;
  char* text = static_cast<char*>(std::malloc(n + 1));
  if (text == nullptr) return 1;  // reported by the result alone: the list stays empty
  auto free_text = on_exit([&] { std::free(text); });

  Body body;
  if (!find_body(pem, n, &body)) return err.fail(2, "not find second ----- ");
  if (!collect_body(pem, n, body, text)) return err.fail(3, "not find three ----- ");
  if (base64_decode(text, der, derLen) != 0) return err.fail(4, "base64_decode");
  return 0;
}

}  // namespace
}  // namespace hylorn

extern "C" HYLORN_API unsigned int DER2PEM_data_format(const unsigned char* der,
                                                       unsigned int derLen, char* out,
                                                       unsigned int* outLen, const char* header,
                                                       const char* footer) {
  return hylorn::der_to_pem(der, derLen, out, outLen, hylorn::or_empty(header),
                            hylorn::or_empty(footer));
}

extern "C" HYLORN_API unsigned int PEM2DER_data_format(const char* pem, int pemLen,
                                                       unsigned char* der, unsigned int* derLen) {
  return hylorn::pem_to_der(pem, pemLen, der, derLen);
}
