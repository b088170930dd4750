#include "x509/extn_list.h"

#include <cstdlib>

#include "asn1/der.h"
#include "asn1/list.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "x509/field_list.h"

namespace hylorn {
namespace {

constexpr u8 kBooleanTag = 0x01;

// Caller extension number -> internal identifier. Numbers without a row have no
// identifier; 13 names a value the identifier table never assigned, so it has none
// either.
struct ExtensionNumber {
  u32 number;
  u32 oidValue;
};

constexpr ExtensionNumber kExtensionNumbers[] = {
    {1, 73},   {2, 74},   {3, 75},   {4, 76},   {5, 77},   {6, 78},   {7, 79},   {8, 80},
    {9, 81},   {10, 82},  {11, 83},  {12, 84},  {14, 86},  {15, 87},  {16, 88},  {17, 89},
    {18, 90},  {19, 91},  {20, 92},  {21, 93},  {40, 106}, {41, 107}, {42, 108}, {43, 109},
    {44, 110}, {45, 111}, {46, 112}, {47, 113}, {48, 114}, {60, 115}, {61, 116},
};

u32 oid_value_of(u32 number) {
  for (const ExtensionNumber& e : kExtensionNumbers) {
    if (e.number == number) return e.oidValue;
  }
  return 0;
}

void reset(X509_EXTN_CONTEXT* ctx) {
  *ctx = X509_EXTN_CONTEXT{nullptr, nullptr, nullptr, 0};
}

}  // namespace

u32 new_X509_EXTN(X509_EXTN** node) {
  const auto err = ErrorScope::keep_list(524);
  auto* n = static_cast<X509_EXTN*>(std::malloc(sizeof(X509_EXTN)));
  if (n == nullptr) return err.fail(1, "malloc");
  n->next = nullptr;
  ini_ASN1_OBJECT_ID(&n->extnID);
  n->critical = 0;
  ini_DATA_BUFFER(&n->extnValue);
  *node = n;
  return 0;
}

u32 free_X509_EXTN(X509_EXTN* list) {
  u32 failed = 0;
  while (list != nullptr) {
    X509_EXTN* next = list->next;
    failed |= free_ASN1_OBJECT_ID(&list->extnID);
    failed |= free_DATA_BUFFER(&list->extnValue);
    std::free(list);
    list = next;
  }
  return failed != 0 ? 1 : 0;
}

u32 Create_One_New_X509_EXTN(X509_EXTN_CONTEXT* ctx) {
  ErrorScope err(504);
  X509_EXTN* node = nullptr;
  if (ctx->started == 0) {
    if (new_X509_EXTN(&node) != 0) return err.fail(1, "new_X509_EXTN");
    ctx->head = node;
    ctx->started = 1;
  } else {
    // A list that cannot grow is given up whole: the caller has nothing left to free.
    if (new_X509_EXTN(&node) != 0) {
      free_X509_EXTN(ctx->head);
      reset(ctx);
      return err.fail(2, "new_X509_EXTN");
    }
    ctx->tail->next = node;
  }
  ctx->tail = node;
  ctx->cursor = node;
  return 0;
}

// Extension ::= SEQUENCE { extnID OBJECT IDENTIFIER, critical BOOLEAN DEFAULT FALSE,
//                          extnValue OCTET STRING }
// DER leaves a DEFAULT value out, so only a critical extension carries the BOOLEAN.
u32 Der_Encode_X509_Extn(const X509_EXTN* node, DATA_BUFFER* out) {
  ErrorScope err(501);
  FieldBuilder parts;
  DATA_BUFFER* part = parts.append();
  if (part == nullptr) return err.fail(1, "new_ASN1_SEQUENCE");
  if (ASN1_Encode_Object(node->extnID, part) != 0) return err.fail(2, "ASN1_Encode_Object");
  if (node->critical != 0) {
    if ((part = parts.append()) == nullptr) return err.fail(3, "new_ASN1_SEQUENCE");
    if (ASN1_Encode_Boolean(1, part) != 0) return err.fail(4, "ASN1_Encode_Boolean");
  }
  if ((part = parts.append()) == nullptr) return err.fail(5, "new_ASN1_SEQUENCE");
  if (ASN1_Encode_Octet_String(node->extnValue, part) != 0) {
    return err.fail(6, "ASN1_Encode_Octet_String");
  }
  if (ASN1_Encode_Sequence(parts.head(), out) != 0) return err.fail(7, "ASN1_Encode_Sequence");
  return 0;
}

u32 Der_Decode_X509_Extn(u32 total, const u8* der, X509_EXTN* node) {
  ErrorScope err(502);
  FieldReader parts;
  if (ASN1_Decode_Sequence(total, der, parts.out()) != 0) {
    return err.fail(1, "ASN1_Decode_Sequence");
  }
  const ASN1_SEQUENCE* part = parts.head();
  if (part == nullptr) return err.fail(2, "certificate encode error");
  if (ASN1_Decode_Object(part->value.length, part->value.data, &node->extnID) != 0) {
    return err.fail(3, "ASN1_Decode_Object");
  }
  auto free_id = on_exit([&] { free_ASN1_OBJECT_ID(&node->extnID); });
  // An identifier the table does not know stays with oidValue 0: the extension is kept
  // so that a certificate carrying it still reads.
  if (ASN1_Find_Oid_Value(&node->extnID) != 0) node->extnID.oidValue = 0;
  part = part->next;
  if (part == nullptr) return err.fail(4, "certificate encode error");
  if (part->value.data[0] == kBooleanTag) {
    if (ASN1_Decode_Boolean(part->value.length, part->value.data, &node->critical) != 0) {
      return err.fail(5, "ASN1_Decode_Boolean");
    }
    part = part->next;
    if (part == nullptr) return err.fail(6, "certificate encode error");
  }
  if (part->next != nullptr) return err.fail(7, "certificate encode error");
  if (ASN1_Decode_Octet_String(part->value.length, part->value.data, &node->extnValue) != 0) {
    return err.fail(8, "ASN1_Decode_Octet_String");
  }
  free_id.release();
  return 0;
}

u32 Cert_Encode_X509_Extensions_Begin(X509_EXTN_CONTEXT* ctx) {
  reset(ctx);
  return 0;
}

// Extensions ::= SEQUENCE SIZE (1..MAX) OF Extension, under [tag] EXPLICIT unless bare.
u32 Cert_Encode_X509_Extensions_End(X509_EXTN_CONTEXT* ctx, DATA_BUFFER* out, u8 tag) {
  ErrorScope err(518);
  auto free_list = on_exit([&] {
    free_X509_EXTN(ctx->head);
    reset(ctx);
  });
  if (ctx->head == nullptr) return err.fail(1, "no extension");
  FieldBuilder extensions;
  for (const X509_EXTN* node = ctx->head; node != nullptr; node = node->next) {
    DATA_BUFFER* element = extensions.append();
    if (element == nullptr) return err.fail(node == ctx->head ? 3 : 4, "new_ASN1_SEQUENCE");
    if (Der_Encode_X509_Extn(node, element) != 0) return err.fail(5, "Der_Encode_X509_Extn");
  }
  if (tag == kBareExtensions) {
    if (ASN1_Encode_Sequence(extensions.head(), out) != 0) {
      return err.fail(14, "ASN1_Encode_Sequence");
    }
    return 0;
  }
  DATA_BUFFER sequence{0, nullptr};
  if (ASN1_Encode_Sequence(extensions.head(), &sequence) != 0) {
    return err.fail(14, "ASN1_Encode_Sequence");
  }
  auto free_sequence = on_exit([&] { free_DATA_BUFFER(&sequence); });
  if (ASN1_Encode_Explicit_Tag(sequence, tag, out) != 0) {
    return err.fail(15, "ASN1_Encode_Explicit_Tag");
  }
  return 0;
}

u32 Cert_Decode_X509_Extensions_Begin(u32 total, const u8* der, X509_EXTN_CONTEXT* ctx, u8 tag) {
  ErrorScope err(519);
  reset(ctx);
  DATA_BUFFER inner{0, nullptr};
  auto free_inner = on_exit([&] { free_DATA_BUFFER(&inner); });
  if (tag != kBareExtensions) {
    u8 found = 0;
    if (ASN1_Decode_Explicit_Tag(total, der, &inner, &found) != 0) {
      return err.fail(2, "ASN1_Decode_Explicit_Tag");
    }
    if (found != tag) return err.fail(2, "ASN1_Decode_Explicit_Tag");
    total = inner.length;
    der = inner.data;
  }
  FieldReader extensions;
  if (ASN1_Decode_Sequence(total, der, extensions.out()) != 0) {
    return err.fail(3, "ASN1_Decode_Sequence");
  }
  if (extensions.head() == nullptr) return err.fail(5, "no extension");
  // A failure part-way leaves nothing behind for the caller to free.
  auto free_list = on_exit([&] {
    free_X509_EXTN(ctx->head);
    reset(ctx);
  });
  for (const ASN1_SEQUENCE* e = extensions.head(); e != nullptr; e = e->next) {
    if (Create_One_New_X509_EXTN(ctx) != 0) {
      return err.fail(e == extensions.head() ? 6 : 7, "new_X509_EXTN");
    }
    if (Der_Decode_X509_Extn(e->value.length, e->value.data, ctx->cursor) != 0) {
      return err.fail(8, "Der_Decode_X509_Extn");
    }
  }
  free_list.release();
  ctx->cursor = ctx->head;
  return 0;
}

u32 Cert_Decode_X509_Extensions_End(X509_EXTN_CONTEXT* ctx) {
  ErrorScope err(503);
  const u32 failed = free_X509_EXTN(ctx->head);
  reset(ctx);
  if (failed != 0) return err.fail(1, "free_X509_EXTN");
  return 0;
}

u32 Find_X509_EXTN_By_Number(X509_EXTN_CONTEXT* ctx, u32 number) {
  ErrorScope err(520);
  const u32 oid_value = oid_value_of(number);
  if (oid_value == 0) return err.fail(1, "Uid error");
  for (X509_EXTN* node = ctx->head; node != nullptr; node = node->next) {
    if (node->extnID.oidValue == oid_value) {
      ctx->cursor = node;
      return 0;
    }
  }
  return 1;
}

}  // namespace hylorn
