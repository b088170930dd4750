#include "x509/extensions.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "frame/error.h"
#include "frame/guard.h"
#include "x509/extension_values.h"
#include "x509/name.h"
#include "x509/tbs_cert.h"

namespace hylorn {
namespace {

// ---- caller record to list (the u2l_XEXT_ wrappers) -----------------------------------

// Every u2l_XEXT_: a new node at the tail of the list, then the extension's encoder on it.
template <class Encode>
u32 append_extension(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx, Encode encode) {
  ErrorScope err(kind.u2l_fn);
  if (Create_One_New_X509_EXTN(ctx) != 0) return err.fail(1, "Create_One_New_X509_EXTN");
  if (encode(ctx->cursor) != 0) return err.fail(2, kind.encode_name);
  return 0;
}

// The extensions whose encoder takes the caller's record as it is.
template <auto Field, auto Encode>
u32 u2l_record(const ExtensionKind& kind, const CERT_EXTN_INFO& info, X509_EXTN_CONTEXT* ctx) {
  return append_extension(kind, ctx,
                          [&](X509_EXTN* node) { return Encode(kind, &(info.*Field), node); });
}

u32 u2l_basic_constraints(const ExtensionKind& kind, const CERT_EXTN_INFO& info,
                          X509_EXTN_CONTEXT* ctx) {
  const USER_XEXT_BasicConstraints& bc = info.basicConstraints;
  return append_extension(kind, ctx, [&](X509_EXTN* node) {
    return Encode_XEXT_BasicConstraints(bc.cA, static_cast<u8>(bc.pathLenConstraint),
                                        bc.pathLenPresent, bc.critical, node);
  });
}

// The authority's names and serial become list and buffers before they are encoded.
u32 u2l_authority_key_identifier(const ExtensionKind& kind,
                                 const USER_XEXT_AuthorityKeyIdentifier* user,
                                 X509_EXTN_CONTEXT* ctx) {
  ErrorScope err(kind.u2l_fn);
  XEXT_AuthorityKeyIdentifier aki{};
  auto free_aki = on_exit([&] { free_XEXT_AuthorityKeyIdentifier(&aki); });
  aki.critical = user->critical != 0 ? 1 : 0;
  if (user->keyIdentifierPresent != 0) {
    const u32 length = std::min(user->keyIdentifierLength, kKeyIdentifierSize);
    if (copy_DATA_BUFFER(&aki.keyIdentifier, length, user->keyIdentifier) != 0) {
      return err.fail(1, "copy_DATA_BUFFER");
    }
    aki.keyIdentifierPresent = 1;
  }
  // The record holds one directory name; its flag, not nameCount, says whether it is there.
  if (user->authorityCertIssuerPresent != 0) {
    if (u2l_X500_NAME(&user->authorityCertIssuer[0], &aki.authorityCertIssuer) != 0) {
      return err.fail(2, "u2l_X500_NAME");
    }
    aki.authorityCertIssuerPresent = 1;
  }
  if (user->authorityCertSerialNumberPresent != 0) {
    const u32 length = std::min<u32>(user->authorityCertSerialNumberLength, kSerialSize);
    if (u2l_serialNumber(user->authorityCertSerialNumber, length, &aki.authorityCertSerialNumber) !=
        0) {
      return err.fail(3, "u2l_serialNumber");
    }
    aki.authorityCertSerialNumberPresent = 1;
  }
  if (Create_One_New_X509_EXTN(ctx) != 0) return err.fail(4, "Create_One_New_X509_EXTN");
  if (Encode_XEXT_AuthorityKeyIdentifier(kind, &aki, ctx->cursor) != 0) {
    return err.fail(5, kind.encode_name);
  }
  return 0;
}

u32 u2l_aki_row(const ExtensionKind& kind, const CERT_EXTN_INFO& info, X509_EXTN_CONTEXT* ctx) {
  return u2l_authority_key_identifier(kind, &info.authorityKeyIdentifier, ctx);
}

// ---- list to caller record (the l2u_XEXT_ wrappers) -----------------------------------

// Every l2u_XEXT_: the first node of the extension's number, when there is one, decoded
// and moved into the caller's record by take, which checks the record's limits.
template <class Take>
u32 take_extension(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx, u32* present, Take take) {
  ErrorScope err(kind.l2u_fn);
  *present = 0;
  if (Find_X509_EXTN_By_Number(ctx, kind.number) != 0) return 0;
  if (take(err, *ctx->cursor) != 0) return 1;
  *present = 1;
  return 0;
}

// Copies octets into a fixed field of size; 1 when they do not fit.
u32 copy_into(const DATA_BUFFER& from, u32 size, u8* field, u32* length) {
  if (from.length > size) return 1;
  if (from.length > 0) std::memcpy(field, from.data, from.length);
  *length = from.length;
  return 0;
}

// Copies characters into a NUL-terminated slot of size; 1 when they do not fit.
u32 copy_text(const DATA_BUFFER& from, u32 size, char* slot) {
  if (from.length >= size) return 1;
  if (from.length > 0) std::memcpy(slot, from.data, from.length);
  slot[from.length] = '\0';
  return 0;
}

u32 l2u_aki_row(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx, CERT_EXTN_INFO* info);

u32 l2u_subject_key_identifier(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx,
                               CERT_EXTN_INFO* info) {
  USER_XEXT_SubjectKeyIdentifier& user = info->subjectKeyIdentifier;
  return take_extension(kind, ctx, &(info->*kind.present),
                        [&](const ErrorScope& err, const X509_EXTN& node) {
                          XEXT_Octets id{};
                          if (Decode_XEXT_SubjectKeyIdentifier(kind, &node, &id) != 0) {
                            return err.fail(1, kind.decode_name);
                          }
                          auto free_id = on_exit([&] { free_DATA_BUFFER(&id.octets); });
                          user = USER_XEXT_SubjectKeyIdentifier{};
                          if (copy_into(id.octets, kKeyIdentifierSize, user.keyIdentifier,
                                        &user.keyIdentifierLength)) {
                            return err.fail(2, "key identifier too long");
                          }
                          user.critical = id.critical;
                          return 0u;
                        });
}

// A GeneralizedTime text to the caller's YYYYMMDDHHMMSS: its first 14 characters.
u32 time_text(const DATA_BUFFER& from, char slot[kTimeTextSize]) {
  constexpr u32 kDigits = 14;
  if (from.length < kDigits) return 1;
  std::memcpy(slot, from.data, kDigits);
  slot[kDigits] = '\0';
  return 0;
}

u32 l2u_private_key_usage_period(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx,
                                 CERT_EXTN_INFO* info) {
  USER_XEXT_PrivateKeyUsagePeriod& user = info->privateKeyUsagePeriod;
  return take_extension(
      kind, ctx, &(info->*kind.present), [&](const ErrorScope& err, const X509_EXTN& node) {
        XEXT_PrivateKeyUsagePeriod period{};
        if (Decode_XEXT_PrivateKeyUsagePeriod(kind, &node, &period) != 0) {
          return err.fail(1, kind.decode_name);
        }
        auto free_period = on_exit([&] { free_XEXT_PrivateKeyUsagePeriod(&period); });
        user = USER_XEXT_PrivateKeyUsagePeriod{};
        if (period.notBeforePresent != 0 && time_text(period.notBefore, user.notBefore) != 0) {
          return err.fail(2, "time error");
        }
        if (period.notAfterPresent != 0 && time_text(period.notAfter, user.notAfter) != 0) {
          return err.fail(3, "time error");
        }
        user.notBeforePresent = period.notBeforePresent;
        user.notAfterPresent = period.notAfterPresent;
        user.critical = period.critical;
        return 0u;
      });
}

u32 l2u_certificate_policies(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx,
                             CERT_EXTN_INFO* info) {
  USER_XEXT_CertificatePolicies& user = info->certificatePolicies;
  return take_extension(
      kind, ctx, &(info->*kind.present), [&](const ErrorScope& err, const X509_EXTN& node) {
        XEXT_CertificatePolicies policies{};
        if (Decode_XEXT_CertificatePolicies(kind, &node, &policies) != 0) {
          return err.fail(1, kind.decode_name);
        }
        auto free_policies = on_exit([&] { free_XEXT_CertificatePolicies(&policies); });
        user = USER_XEXT_CertificatePolicies{};
        const ASN1_SEQUENCE* q = policies.qualifiers;
        for (const ASN1_SEQUENCE* id = policies.identifiers; id != nullptr; id = id->next) {
          const u32 i = user.count;
          if (i == kPolicySlots) return err.fail(2, "too many policies");
          if (copy_into(id->value, kPolicyOidSize, user.policyIdentifier[i],
                        &user.policyIdentifierLength[i]) != 0) {
            return err.fail(3, "policy identifier too long");
          }
          if (copy_text(q->value, kPolicyQualifierSize, user.qualifier[i]) != 0) {
            return err.fail(4, "policy qualifier too long");
          }
          q = q->next;
          user.count = i + 1;
        }
        user.critical = policies.critical;
        return 0u;
      });
}

u32 l2u_basic_constraints(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx, CERT_EXTN_INFO* info) {
  USER_XEXT_BasicConstraints& user = info->basicConstraints;
  return take_extension(
      kind, ctx, &(info->*kind.present), [&](const ErrorScope& err, const X509_EXTN& node) {
        XEXT_BasicConstraints bc{};
        if (Decode_XEXT_BasicConstraints(&node, &bc) != 0) return err.fail(1, kind.decode_name);
        if (bc.pathLenConstraint > INT_MAX) return err.fail(2, "pathLenConstraint too large");
        user = USER_XEXT_BasicConstraints{bc.cA, static_cast<i32>(bc.pathLenConstraint),
                                          bc.pathLenPresent, bc.critical};
        return 0u;
      });
}

template <auto Field>
u32 l2u_bit_flags(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx, CERT_EXTN_INFO* info) {
  return take_extension(kind, ctx, &(info->*kind.present),
                        [&](const ErrorScope& err, const X509_EXTN& node) {
                          if (Decode_XEXT_BitFlags(kind, &node, &(info->*Field)) != 0) {
                            return err.fail(1, kind.decode_name);
                          }
                          return 0u;
                        });
}

u32 l2u_ext_key_usage(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx, CERT_EXTN_INFO* info) {
  USER_XEXT_ExtKeyUsage& user = info->extKeyUsage;
  return take_extension(
      kind, ctx, &(info->*kind.present), [&](const ErrorScope& err, const X509_EXTN& node) {
        XEXT_ExtKeyUsage usage{};
        if (Decode_XEXT_ExtKeyUsage(kind, &node, &usage) != 0) return err.fail(1, kind.decode_name);
        auto free_usage = on_exit([&] { free_ASN1_SEQUENCE(usage.purposes); });
        user = USER_XEXT_ExtKeyUsage{};
        for (const ASN1_SEQUENCE* p = usage.purposes; p != nullptr; p = p->next) {
          const u32 i = user.count;
          if (i == kKeyPurposeSlots) return err.fail(2, "too many purposes");
          if (copy_into(p->value, kKeyPurposeSize, user.purpose[i], &user.purposeLength[i]) != 0) {
            return err.fail(3, "purpose too long");
          }
          user.count = i + 1;
        }
        user.critical = usage.critical;
        return 0u;
      });
}

u32 l2u_hashed_root_key(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx, CERT_EXTN_INFO* info) {
  USER_XEXT_HashedRootKey& user = info->setHashedRootKey;
  return take_extension(
      kind, ctx, &(info->*kind.present), [&](const ErrorScope& err, const X509_EXTN& node) {
        XEXT_Octets hash{};
        if (Decode_SET_EXT_hashedRootKey(kind, &node, &hash) != 0) {
          return err.fail(1, kind.decode_name);
        }
        auto free_hash = on_exit([&] { free_DATA_BUFFER(&hash.octets); });
        user = USER_XEXT_HashedRootKey{};
        if (copy_into(hash.octets, kHashedRootKeySize, user.octets, &user.length) != 0) {
          return err.fail(2, "hashed root key too long");
        }
        user.critical = hash.critical;
        return 0u;
      });
}

// ---- the table ------------------------------------------------------------------------

using Info = CERT_EXTN_INFO;

// In the order of CERT_EXTN_INFO's presence flags, which is the order of the list built.
constexpr ExtensionKind kExtensions[] = {
    {kExtAuthorityKeyIdentifier, 73, &Info::authorityKeyIdentifierPresent, 525, 526, 527, 528,
     "Encode_XEXT_AuthorityKeyIdentifier", "u2l_XEXT_AuthorityKeyIdentifier",
     "Decode_XEXT_AuthorityKeyIdentifier", "l2u_XEXT_AuthorityKeyIdentifier", u2l_aki_row,
     l2u_aki_row},
    {kExtSubjectKeyIdentifier, 74, &Info::subjectKeyIdentifierPresent, 529, 530, 531, 532,
     "Encode_XEXT_SubjectKeyIdentifier", "u2l_XEXT_SubjectKeyIdentifier",
     "Decode_XEXT_SubjectKeyIdentifier", "l2u_XEXT_SubjectKeyIdentifier",
     u2l_record<&Info::subjectKeyIdentifier, Encode_XEXT_SubjectKeyIdentifier>,
     l2u_subject_key_identifier},
    {kExtPrivateKeyUsagePeriod, 76, &Info::privateKeyUsagePeriodPresent, 533, 534, 535, 536,
     "Encode_XEXT_PrivateKeyUsagePeriod", "u2l_XEXT_PrivateKeyUsagePeriod",
     "Decode_XEXT_PrivateKeyUsagePeriod", "l2u_XEXT_PrivateKeyUsagePeriod",
     u2l_record<&Info::privateKeyUsagePeriod, Encode_XEXT_PrivateKeyUsagePeriod>,
     l2u_private_key_usage_period},
    {kExtCertificatePolicies, 77, &Info::certificatePoliciesPresent, 537, 538, 539, 540,
     "Encode_XEXT_CertificatePolicies", "u2l_XEXT_CertificatePolicies",
     "Decode_XEXT_CertificatePolicies", "l2u_XEXT_CertificatePolicies",
     u2l_record<&Info::certificatePolicies, Encode_XEXT_CertificatePolicies>,
     l2u_certificate_policies},
    {kExtBasicConstraints, 82, &Info::basicConstraintsPresent, 506, 507, 508, 509,
     "Encode_XEXT_BasicConstraints", "u2l_XEXT_BasicConstraints", "Decode_XEXT_BasicConstraints",
     "l2u_XEXT_BasicConstraints", u2l_basic_constraints, l2u_basic_constraints},
    {kExtKeyUsage, 75, &Info::keyUsagePresent, 541, 542, 543, 544, "Encode_XEXT_KeyUsage",
     "u2l_XEXT_KeyUsage", "Decode_XEXT_KeyUsage", "l2u_XEXT_KeyUsage",
     u2l_record<&Info::keyUsage, Encode_XEXT_BitFlags>, l2u_bit_flags<&Info::keyUsage>},
    {kExtExtKeyUsage, 86, &Info::extKeyUsagePresent, 545, 546, 547, 548, "Encode_XEXT_ExtKeyUsage",
     "u2l_XEXT_ExtKeyUsage", "Decode_XEXT_ExtKeyUsage", "l2u_XEXT_ExtKeyUsage",
     u2l_record<&Info::extKeyUsage, Encode_XEXT_ExtKeyUsage>, l2u_ext_key_usage},
    {kExtNetscapeCertType, 106, &Info::netscapeCertTypePresent, 549, 550, 551, 552,
     "Encode_XEXT_NetscapeCertType", "u2l_XEXT_NetscapeCertType", "Decode_XEXT_NetscapeCertType",
     "l2u_XEXT_NetscapeCertType", u2l_record<&Info::netscapeCertType, Encode_XEXT_BitFlags>,
     l2u_bit_flags<&Info::netscapeCertType>},
    {kExtSetCertType, 116, &Info::setCertTypePresent, 553, 554, 555, 556,
     "Encode_SET_EXT_certificateType", "u2l_SET_EXT_certificateType",
     "Decode_SET_EXT_certificateType", "l2u_SET_EXT_certificateType",
     u2l_record<&Info::setCertType, Encode_XEXT_BitFlags>, l2u_bit_flags<&Info::setCertType>},
    {kExtSetHashedRootKey, 115, &Info::setHashedRootKeyPresent, 562, 563, 564, 565,
     "Encode_SET_EXT_hashedRootKey", "u2l_SET_EXT_hashedRootKey", "Decode_SET_EXT_hashedRootKey",
     "l2u_SET_EXT_hashedRootKey", u2l_record<&Info::setHashedRootKey, Encode_SET_EXT_hashedRootKey>,
     l2u_hashed_root_key},
    {0, 0, &Info::privateExtensionPresent, 557, 558, 0, 0, "Encode_XEXT_Private",
     "u2l_XEXT_Private", nullptr, nullptr, u2l_record<&Info::privateExtension, Encode_XEXT_Private>,
     nullptr},
};

constexpr const ExtensionKind& kAuthorityKeyIdentifier = kExtensions[0];

u32 l2u_authority_key_identifier(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx,
                                 USER_XEXT_AuthorityKeyIdentifier* user, u32* present) {
  return take_extension(kind, ctx, present, [&](const ErrorScope& err, const X509_EXTN& node) {
    XEXT_AuthorityKeyIdentifier aki{};
    if (Decode_XEXT_AuthorityKeyIdentifier(kind, &node, &aki) != 0) {
      return err.fail(1, kind.decode_name);
    }
    auto free_aki = on_exit([&] { free_XEXT_AuthorityKeyIdentifier(&aki); });
    *user = USER_XEXT_AuthorityKeyIdentifier{};
    if (aki.keyIdentifierPresent != 0) {
      if (copy_into(aki.keyIdentifier, kKeyIdentifierSize, user->keyIdentifier,
                    &user->keyIdentifierLength) != 0) {
        return err.fail(2, "key identifier too long");
      }
      user->keyIdentifierPresent = 1;
    }
    if (aki.authorityCertIssuerPresent != 0) {
      l2u_X500_NAME(aki.authorityCertIssuer, &user->authorityCertIssuer[0]);
      user->nameCount = 1;
      user->authorityCertIssuerPresent = 1;
    }
    if (aki.authorityCertSerialNumberPresent != 0) {
      if (l2u_serialNumber(&aki.authorityCertSerialNumber, user->authorityCertSerialNumber,
                           &user->authorityCertSerialNumberLength) != 0) {
        return err.fail(3, "l2u_serialNumber");
      }
      user->authorityCertSerialNumberPresent = 1;
    }
    user->critical = aki.critical;
    return 0u;
  });
}

u32 l2u_aki_row(const ExtensionKind& kind, X509_EXTN_CONTEXT* ctx, CERT_EXTN_INFO* info) {
  return l2u_authority_key_identifier(kind, ctx, &info->authorityKeyIdentifier,
                                      &(info->*kind.present));
}

}  // namespace

u32 u2l_XEXT_AuthorityKeyIdentifier(const USER_XEXT_AuthorityKeyIdentifier* user,
                                    X509_EXTN_CONTEXT* ctx) {
  return u2l_authority_key_identifier(kAuthorityKeyIdentifier, user, ctx);
}

u32 l2u_XEXT_AuthorityKeyIdentifier(X509_EXTN_CONTEXT* ctx, USER_XEXT_AuthorityKeyIdentifier* user,
                                    u32* present) {
  return l2u_authority_key_identifier(kAuthorityKeyIdentifier, ctx, user, present);
}

u32 u2l_CERT_EXTN_INFO(const CERT_EXTN_INFO* info, DATA_BUFFER* extensions) {
  ErrorScope err(313);
  X509_EXTN_CONTEXT ctx{};
  if (Cert_Encode_X509_Extensions_Begin(&ctx) != 0) {
    return err.fail(1, "Cert_Encode_X509_Extensions_Begin");
  }
  auto free_list = on_exit([&] { free_X509_EXTN(ctx.head); });
  for (const ExtensionKind& kind : kExtensions) {
    if (info->*kind.present == 0) continue;
    if (kind.u2l(kind, *info, &ctx) != 0) return err.fail(2, kind.u2l_name);
  }
  free_list.release();  // the End call frees the list, whatever it answers
  if (Cert_Encode_X509_Extensions_End(&ctx, extensions) != 0) {
    return err.fail(18, "Cert_Encode_X509_Extensions_End");
  }
  return 0;
}

u32 l2u_extensions(const DATA_BUFFER* extensions, CERT_EXTN_INFO* info) {
  ErrorScope err(523);
  X509_EXTN_CONTEXT ctx{};
  if (Cert_Decode_X509_Extensions_Begin(extensions->length, extensions->data, &ctx) != 0) {
    return err.fail(1, "Cert_Decode_X509_Extensions_Begin");
  }
  // Freed without the End call on failure, which would empty the list of entries.
  auto free_list = on_exit([&] { free_X509_EXTN(ctx.head); });
  for (const ExtensionKind& kind : kExtensions) {
    info->*kind.present = 0;
    if (kind.l2u != nullptr && kind.l2u(kind, &ctx, info) != 0) {
      return err.fail(2, kind.l2u_name);
    }
  }
  free_list.release();
  if (Cert_Decode_X509_Extensions_End(&ctx) != 0) {
    return err.fail(19, "Cert_Decode_X509_Extensions_End");
  }
  return 0;
}

}  // namespace hylorn
