#include "crl/crl_extensions.h"

#include <cstdlib>
#include <cstring>

#include "asn1/der.h"
#include "asn1/der_reader.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "x509/extensions.h"
#include "x509/time.h"

namespace hylorn {
namespace {

constexpr u8 kEnumeratedTag = 0x0A;
// Internal identifiers of the object identifier table.
constexpr u32 kOidCrlNumber = 87;
constexpr u32 kOidReasonCode = 91;
constexpr u32 kOidInvalidityDate = 93;

// Gives a node its identifier and critical flag.
u32 set_identifier(X509_EXTN* node, u32 oid_value, u32 critical) {
  node->extnID.oidValue = oid_value;
  if (ASN1_Find_Object_ID(&node->extnID) != 0) return 1;
  node->critical = critical != 0 ? 1 : 0;
  return 0;
}

}  // namespace

// ENUMERATED: like INTEGER, the shortest two's-complement octets; a value with bit 7 of
// its first octet set takes a 00 in front so that it stays non-negative.
u32 ASN1_Encode_Enumerated(u32 value, DATA_BUFFER* out) {
  ErrorScope err(911);
  u8 octets[5] = {0, u8(value >> 24), u8(value >> 16), u8(value >> 8), u8(value)};
  u32 first = 1;
  while (first < 4 && octets[first] == 0 && octets[first + 1] < 0x80) ++first;
  if (octets[first] >= 0x80) --first;  // a 00 stands before it
  const u32 n = 5 - first;
  auto* p = static_cast<u8*>(std::malloc(2 + n));
  if (p == nullptr) return err.fail(1, "memory");
  std::memcpy(write_der_header(p, kEnumeratedTag, n), octets + first, n);
  *out = DATA_BUFFER{2 + n, p};
  return 0;
}

u32 ASN1_Decode_Enumerated(u32 total, const u8* der, u32* value) {
  ErrorScope err(912);
  DerElement e{};
  const DerStep step = read_der(total, der, kEnumeratedTag, &e);
  if (step != DerStep::kOk) return fail_step(err, step, kDerStepErrors);
  if (e.length == 0) return err.fail(6, "data length");
  if ((e.contents[0] & 0x80) != 0) return err.fail(7, "negative value");
  if (e.length > 5 || (e.length == 5 && e.contents[0] != 0)) return err.fail(8, "data too length");
  u32 v = 0;
  for (u32 i = 0; i < e.length; ++i) v = (v << 8) | e.contents[i];
  *value = v;
  return 0;
}

// reasonCode: extnValue is the DER of a CRLReason.
u32 Encode_XEXT_CRLReason(X509_EXTN* node, u32 reason, u32 critical) {
  ErrorScope err(913);
  if (set_identifier(node, kOidReasonCode, critical) != 0) {
    return err.fail(1, "ASN1_Find_Object_ID");
  }
  if (ASN1_Encode_Enumerated(reason, &node->extnValue) != 0) {
    free_ASN1_OBJECT_ID(&node->extnID);
    return err.fail(2, "ASN1_Encode_Enumerated");
  }
  return 0;
}

u32 Decode_XEXT_CRLReason(const X509_EXTN* node, u32* reason, u32* critical) {
  ErrorScope err(914);
  if (ASN1_Decode_Enumerated(node->extnValue.length, node->extnValue.data, reason) != 0) {
    return err.fail(1, "ASN1_Decode_Enumerated");
  }
  *critical = node->critical;
  return 0;
}

// invalidityDate: always GeneralizedTime, so the 2050 rule of the other times does not
// apply: the text's (at most) 14 digits and a Z.
u32 Encode_XEXT_InvalidityDate(X509_EXTN* node, const char* text, u32 critical) {
  ErrorScope err(915);
  if (set_identifier(node, kOidInvalidityDate, critical) != 0) {
    return err.fail(1, "ASN1_Find_Object_ID");
  }
  X509_TIME time{1, {}};
  const std::size_t digits = strnlen(text, 14);
  std::memcpy(time.text, text, digits);
  time.text[digits] = 'Z';
  if (Der_Encode_X509_TIME(&time, &node->extnValue) != 0) {
    free_ASN1_OBJECT_ID(&node->extnID);
    return err.fail(2, "Der_Encode_X509_TIME");
  }
  return 0;
}

u32 Decode_XEXT_InvalidityDate(const X509_EXTN* node, char text[kTimeTextSize], u32* critical) {
  ErrorScope err(916);
  X509_TIME time{};
  if (Der_Decode_X509_TIME(node->extnValue.length, node->extnValue.data, &time) != 0) {
    return err.fail(1, "Der_Decode_X509_TIME");
  }
  if (l2u_X509_TIME(&time, text) != 0) return err.fail(2, "l2u_X509_TIME");
  *critical = node->critical;
  return 0;
}

u32 Encode_XEXT_CRLNumber(X509_EXTN* node, const u8* number, u32 length, u32 critical) {
  ErrorScope err(917);
  if (set_identifier(node, kOidCrlNumber, critical) != 0) {
    return err.fail(1, "ASN1_Find_Object_ID");
  }
  if (ASN1_Encode_Integer(DATA_BUFFER{length, const_cast<u8*>(number)}, &node->extnValue) != 0) {
    free_ASN1_OBJECT_ID(&node->extnID);
    return err.fail(2, "ASN1_Encode_Integer");
  }
  return 0;
}

u32 Decode_XEXT_CRLNumber(const X509_EXTN* node, u8 number[kCrlNumberSize], u32* length,
                          u32* critical) {
  ErrorScope err(918);
  DATA_BUFFER value{};
  if (ASN1_Decode_Integer(node->extnValue.length, node->extnValue.data, &value) != 0) {
    return err.fail(1, "ASN1_Decode_Integer");
  }
  auto release = on_exit([&] { free_DATA_BUFFER(&value); });
  if (value.length > kCrlNumberSize) return err.fail(2, "crl number too length");
  if (value.length > 0) std::memcpy(number, value.data, value.length);
  *length = value.length;
  *critical = node->critical;
  return 0;
}

// The guards free the lists with the record operation, which keeps the error list; the
// contexts' End functions would empty it on the failure path.
u32 u2l_CRL_ENTRY_EXTENSIONS(const USER_revokedCert_INFO* user, DATA_BUFFER* out) {
  ErrorScope err(920);
  X509_EXTN_CONTEXT ctx{};
  if (Cert_Encode_X509_Extensions_Begin(&ctx) != 0) {
    return err.fail(1, "Cert_Encode_X509_Extensions_Begin");
  }
  auto drop = on_exit([&] { free_X509_EXTN(ctx.head); });
  if (user->reasonPresent) {
    if (Create_One_New_X509_EXTN(&ctx) != 0) return err.fail(2, "Create_One_New_X509_EXTN");
    if (Encode_XEXT_CRLReason(ctx.cursor, user->reasonCode, user->reasonCritical) != 0) {
      return err.fail(3, "Encode_XEXT_CRLReason");
    }
  }
  if (user->invalidityDatePresent) {
    if (Create_One_New_X509_EXTN(&ctx) != 0) return err.fail(4, "Create_One_New_X509_EXTN");
    if (Encode_XEXT_InvalidityDate(ctx.cursor, user->invalidityDate, user->invalidityCritical) !=
        0) {
      return err.fail(5, "Encode_XEXT_InvalidityDate");
    }
  }
  drop.release();  // End frees the list whatever happens
  if (Cert_Encode_X509_Extensions_End(&ctx, out, kBareExtensions) != 0) {
    return err.fail(6, "Cert_Encode_X509_Extensions_End");
  }
  return 0;
}

u32 l2u_CRL_ENTRY_EXTENSIONS(const DATA_BUFFER* der, USER_revokedCert_INFO* user) {
  ErrorScope err(921);
  X509_EXTN_CONTEXT ctx{};
  if (Cert_Decode_X509_Extensions_Begin(der->length, der->data, &ctx, kBareExtensions) != 0) {
    return err.fail(1, "Cert_Decode_X509_Extensions_Begin");
  }
  auto drop = on_exit([&] { free_X509_EXTN(ctx.head); });
  if (Find_X509_EXTN_By_Number(&ctx, kExtReasonCode) == 0) {
    if (Decode_XEXT_CRLReason(ctx.cursor, &user->reasonCode, &user->reasonCritical) != 0) {
      return err.fail(2, "Decode_XEXT_CRLReason");
    }
    user->reasonPresent = 1;
  }
  if (Find_X509_EXTN_By_Number(&ctx, kExtInvalidityDate) == 0) {
    if (Decode_XEXT_InvalidityDate(ctx.cursor, user->invalidityDate, &user->invalidityCritical) !=
        0) {
      return err.fail(3, "Decode_XEXT_InvalidityDate");
    }
    user->invalidityDatePresent = 1;
  }
  user->entryExtensionsPresent = 1;
  return 0;
}

u32 u2l_CRL_EXTENSIONS(const USER_CRL_EXTN_INFO* user, DATA_BUFFER* out) {
  ErrorScope err(922);
  X509_EXTN_CONTEXT ctx{};
  if (Cert_Encode_X509_Extensions_Begin(&ctx) != 0) {
    return err.fail(1, "Cert_Encode_X509_Extensions_Begin");
  }
  auto drop = on_exit([&] { free_X509_EXTN(ctx.head); });
  if (user->authorityKeyIdentifierPresent &&
      u2l_XEXT_AuthorityKeyIdentifier(&user->authorityKeyIdentifier, &ctx) != 0) {
    return err.fail(2, "u2l_XEXT_AuthorityKeyIdentifier");
  }
  if (user->crlNumberPresent) {
    if (Create_One_New_X509_EXTN(&ctx) != 0) return err.fail(3, "Create_One_New_X509_EXTN");
    if (Encode_XEXT_CRLNumber(ctx.cursor, user->crlNumber, user->crlNumberLength,
                              user->crlNumberCritical) != 0) {
      return err.fail(4, "Encode_XEXT_CRLNumber");
    }
  }
  drop.release();
  if (Cert_Encode_X509_Extensions_End(&ctx, out, kCrlExtensionsTag) != 0) {
    return err.fail(5, "Cert_Encode_X509_Extensions_End");
  }
  return 0;
}

u32 l2u_CRL_EXTENSIONS(const DATA_BUFFER* der, USER_CRL_EXTN_INFO* user) {
  ErrorScope err(923);
  X509_EXTN_CONTEXT ctx{};
  if (Cert_Decode_X509_Extensions_Begin(der->length, der->data, &ctx, kCrlExtensionsTag) != 0) {
    return err.fail(1, "Cert_Decode_X509_Extensions_Begin");
  }
  auto drop = on_exit([&] { free_X509_EXTN(ctx.head); });
  u32 present = 0;
  if (l2u_XEXT_AuthorityKeyIdentifier(&ctx, &user->authorityKeyIdentifier, &present) != 0) {
    return err.fail(2, "l2u_XEXT_AuthorityKeyIdentifier");
  }
  user->authorityKeyIdentifierPresent = present;
  if (Find_X509_EXTN_By_Number(&ctx, kExtCrlNumber) == 0) {
    if (Decode_XEXT_CRLNumber(ctx.cursor, user->crlNumber, &user->crlNumberLength,
                              &user->crlNumberCritical) != 0) {
      return err.fail(3, "Decode_XEXT_CRLNumber");
    }
    user->crlNumberPresent = 1;
  }
  return 0;
}

}  // namespace hylorn
