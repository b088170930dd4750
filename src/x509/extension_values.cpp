#include "x509/extension_values.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "asn1/der.h"
#include "asn1/der_reader.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "x509/field_list.h"
#include "x509/name.h"

namespace hylorn {
namespace {

constexpr const char* kMalformed = "certificate encode error";

constexpr u8 kBooleanTag = 0x01;
constexpr u8 kIntegerTag = 0x02;
constexpr u8 kIA5StringTag = 0x16;
constexpr u8 kSequenceTag = 0x30;
constexpr u8 kContext0 = 0x80;  // [0] IMPLICIT, primitive
constexpr u8 kContext1 = 0x81;
constexpr u8 kContext2 = 0x82;
constexpr u8 kContext1Constructed = 0xA1;
constexpr u8 kDirectoryName = 0xA4;  // [4] EXPLICIT Name inside a GeneralName
constexpr u8 kDirectoryNameTag = 4;
constexpr u32 kIdQtCps = 94;             // 1.3.6.1.5.5.7.2.1
constexpr u32 kBasicConstraintsId = 82;  // 2.5.29.19
constexpr u32 kTimeDigits = 14;

// SEQUENCE { SEQUENCE { INTEGER 0, AlgorithmIdentifier { sha1, NULL },
//   SEQUENCE { OBJECT IDENTIFIER 2.23.42.3.0.0 }, OCTET STRING (20 octets) } }: the
// lengths are fixed, so the octets after it must be a SHA-1 hash.
constexpr u8 kHashedRootKeyPrefix[] = {0x30, 0x2F, 0x30, 0x2D, 0x02, 0x01, 0x00, 0x30, 0x09, 0x06,
                                       0x05, 0x2B, 0x0E, 0x03, 0x02, 0x1A, 0x05, 0x00, 0x30, 0x07,
                                       0x06, 0x05, 0x67, 0x2A, 0x03, 0x00, 0x00, 0x04, 0x14};

// The frame every extension encoder shares: name the node, mark its criticality, build
// its value, and give the name back when the value cannot be built.
template <class Build>
u32 encode_extension(const ErrorScope& err, u32 oidValue, u32 critical, X509_EXTN* node,
                     Build build) {
  node->extnID.oidValue = oidValue;
  if (ASN1_Find_Object_ID(&node->extnID) != 0) return err.fail(1, "ASN1_Find_Object_ID");
  auto unname = on_exit([&] { free_ASN1_OBJECT_ID(&node->extnID); });
  node->critical = critical != 0 ? 1 : 0;
  if (build(&node->extnValue) != 0) return 1;
  unname.release();
  return 0;
}

// An IMPLICIT primitive is its contents, unchanged, under a context tag: the OCTET
// STRING encoder writes contents unchanged, so its element with the tag replaced is it.
u32 encode_implicit(DATA_BUFFER contents, u8 tag, DATA_BUFFER* out) {
  if (ASN1_Encode_Octet_String(contents, out) != 0) return 1;
  out->data[0] = tag;
  return 0;
}

// The contents of an IMPLICIT primitive element whose identifier must be tag.
bool implicit_contents(const DATA_BUFFER& element, u8 tag, DerElement* e) {
  return read_der(element.length, element.data, tag, e) == DerStep::kOk;
}

u8 first_octet(const ASN1_SEQUENCE* part) {
  return part->value.data[0];  // the list decoder keeps only whole elements of 2 or more
}

// A text of at most `size` octets: up to its NUL, never past the field.
DATA_BUFFER field_text(const char* text, u32 size) {
  const u32 n = static_cast<u32>(strnlen(text, size));
  return DATA_BUFFER{n, reinterpret_cast<u8*>(const_cast<char*>(text))};
}

DATA_BUFFER field_octets(const u8* octets, u32 length, u32 size) {
  return DATA_BUFFER{std::min(length, size), const_cast<u8*>(octets)};
}

// Cuts a constructed element into its components.
u32 split(const DATA_BUFFER& element, FieldReader* parts) {
  return ASN1_Decode_Sequence(element.length, element.data, parts->out());
}

// Moves octets into a new node at *tail, a list of plain octets the caller owns; the
// octets are freed when no node can be made.
u32 append_octets(ASN1_SEQUENCE*** tail, DATA_BUFFER* octets) {
  if (new_ASN1_SEQUENCE(*tail) != 0) {
    free_DATA_BUFFER(octets);
    return 1;
  }
  (**tail)->value = *octets;
  ini_DATA_BUFFER(octets);
  *tail = &(**tail)->next;
  return 0;
}

}  // namespace

void free_XEXT_AuthorityKeyIdentifier(XEXT_AuthorityKeyIdentifier* aki) {
  free_DATA_BUFFER(&aki->keyIdentifier);
  free_X500_NAME(aki->authorityCertIssuer);
  aki->authorityCertIssuer = nullptr;
  free_DATA_BUFFER(&aki->authorityCertSerialNumber);
}

void free_XEXT_PrivateKeyUsagePeriod(XEXT_PrivateKeyUsagePeriod* period) {
  free_DATA_BUFFER(&period->notBefore);
  free_DATA_BUFFER(&period->notAfter);
}

void free_XEXT_CertificatePolicies(XEXT_CertificatePolicies* policies) {
  free_ASN1_SEQUENCE(policies->identifiers);
  free_ASN1_SEQUENCE(policies->qualifiers);
  policies->identifiers = nullptr;
  policies->qualifiers = nullptr;
}

// ---- AuthorityKeyIdentifier -----------------------------------------------------------

// GeneralNames ::= SEQUENCE SIZE (1..MAX) OF GeneralName, here one directoryName [4]
u32 DER_Encode_GeneralNames(const X500_NAME* name, DATA_BUFFER* out) {
  ErrorScope err(510);
  DATA_BUFFER der{0, nullptr};
  if (Der_Encode_X500_Name(name, &der) != 0) return err.fail(1, "Der_Encode_X500_Name");
  auto free_der = on_exit([&] { free_DATA_BUFFER(&der); });
  FieldBuilder names;
  DATA_BUFFER* directory = names.append();
  if (directory == nullptr) return err.fail(2, "new_ASN1_SEQUENCE");
  if (ASN1_Encode_Explicit_Tag(der, kDirectoryNameTag, directory) != 0) {
    return err.fail(3, "ASN1_Encode_Explicit_Tag");
  }
  if (ASN1_Encode_Sequence(names.head(), out) != 0) return err.fail(4, "ASN1_Encode_Sequence");
  return 0;
}

u32 DER_Decode_GeneralNames(const DATA_BUFFER* element, X500_NAME** name, u8* found) {
  ErrorScope err(561);
  *found = 0;
  if (element->length < 2) return err.fail(1, kMalformed);
  // The list decoder reads universal SEQUENCEs only; an IMPLICIT [1] is read on a copy.
  DATA_BUFFER copy{0, nullptr};
  if (copy_DATA_BUFFER(&copy, element->length, element->data) != 0) {
    return err.fail(2, "copy_DATA_BUFFER");
  }
  auto free_copy = on_exit([&] { free_DATA_BUFFER(&copy); });
  copy.data[0] = kSequenceTag;
  FieldReader names;
  if (split(copy, &names) != 0) return err.fail(3, "ASN1_Decode_Sequence");
  for (const ASN1_SEQUENCE* n = names.head(); n != nullptr; n = n->next) {
    if (first_octet(n) != kDirectoryName) continue;  // other kinds of name are skipped
    DATA_BUFFER inner{0, nullptr};
    u8 tag = 0;
    if (ASN1_Decode_Explicit_Tag(n->value.length, n->value.data, &inner, &tag) != 0) {
      return err.fail(4, "ASN1_Decode_Explicit_Tag");
    }
    auto free_inner = on_exit([&] { free_DATA_BUFFER(&inner); });
    if (Der_Decode_X500_Name(inner.length, inner.data, name) != 0) {
      return err.fail(5, "Der_Decode_X500_Name");
    }
    *found = 1;
    return 0;
  }
  return 0;
}

// An IMPLICIT INTEGER read like the universal one (one sign octet dropped), on a copy
// whose tag is put back to 02.
u32 decode_implicit_integer(const DATA_BUFFER& element, DATA_BUFFER* out) {
  DATA_BUFFER copy{0, nullptr};
  if (copy_DATA_BUFFER(&copy, element.length, element.data) != 0) return 1;
  auto free_copy = on_exit([&] { free_DATA_BUFFER(&copy); });
  copy.data[0] = kIntegerTag;
  return ASN1_Decode_Integer(copy.length, copy.data, out);
}

u32 Encode_XEXT_AuthorityKeyIdentifier(const ExtensionKind& kind,
                                       const XEXT_AuthorityKeyIdentifier* aki, X509_EXTN* node) {
  ErrorScope err(kind.encode_fn);
  return encode_extension(err, kind.oidValue, aki->critical, node, [&](DATA_BUFFER* value) {
    FieldBuilder parts;
    DATA_BUFFER* e = nullptr;
    if (aki->keyIdentifierPresent != 0) {
      if ((e = parts.append()) == nullptr) return err.fail(2, "new_ASN1_SEQUENCE");
      if (encode_implicit(aki->keyIdentifier, kContext0, e) != 0) {
        return err.fail(3, "ASN1_Encode_Octet_String");
      }
    }
    if (aki->authorityCertIssuerPresent != 0) {
      if ((e = parts.append()) == nullptr) return err.fail(4, "new_ASN1_SEQUENCE");
      if (DER_Encode_GeneralNames(aki->authorityCertIssuer, e) != 0) {
        return err.fail(5, "DER_Encode_GeneralNames");
      }
      e->data[0] = kContext1Constructed;
    }
    if (aki->authorityCertSerialNumberPresent != 0) {
      if ((e = parts.append()) == nullptr) return err.fail(6, "new_ASN1_SEQUENCE");
      // The same INTEGER as the authority certificate's own serial, so that the two
      // compare equal byte for byte; only the tag differs.
      if (ASN1_Encode_Integer(aki->authorityCertSerialNumber, e) != 0) {
        return err.fail(7, "ASN1_Encode_Integer");
      }
      e->data[0] = kContext2;
    }
    if (ASN1_Encode_Sequence(parts.head(), value) != 0) {
      return err.fail(8, "ASN1_Encode_Sequence");
    }
    return 0u;
  });
}

u32 Decode_XEXT_AuthorityKeyIdentifier(const ExtensionKind& kind, const X509_EXTN* node,
                                       XEXT_AuthorityKeyIdentifier* aki) {
  ErrorScope err(kind.decode_fn);
  *aki = XEXT_AuthorityKeyIdentifier{};
  aki->critical = node->critical;
  FieldReader parts;
  if (split(node->extnValue, &parts) != 0) {
    return err.fail(1, "ASN1_Decode_Sequence");
  }
  auto undo = on_exit([&] { free_XEXT_AuthorityKeyIdentifier(aki); });
  for (const ASN1_SEQUENCE* p = parts.head(); p != nullptr; p = p->next) {
    DerElement e{};
    const u8 tag = first_octet(p);
    if (tag == kContext0 && aki->keyIdentifierPresent == 0) {
      if (!implicit_contents(p->value, kContext0, &e)) return err.fail(2, kMalformed);
      if (copy_DATA_BUFFER(&aki->keyIdentifier, e.length, e.contents) != 0) {
        return err.fail(3, "copy_DATA_BUFFER");
      }
      aki->keyIdentifierPresent = 1;
    } else if (tag == kContext1Constructed && aki->authorityCertIssuerPresent == 0) {
      if (DER_Decode_GeneralNames(&p->value, &aki->authorityCertIssuer,
                                  &aki->authorityCertIssuerPresent) != 0) {
        return err.fail(4, "DER_Decode_GeneralNames");
      }
    } else if (tag == kContext2 && aki->authorityCertSerialNumberPresent == 0) {
      if (!implicit_contents(p->value, kContext2, &e)) return err.fail(5, kMalformed);
      if (decode_implicit_integer(p->value, &aki->authorityCertSerialNumber) != 0) {
        return err.fail(6, "ASN1_Decode_Integer");
      }
      aki->authorityCertSerialNumberPresent = 1;
    } else {
      return err.fail(7, kMalformed);
    }
  }
  undo.release();
  return 0;
}

// ---- SubjectKeyIdentifier -------------------------------------------------------------

u32 Encode_XEXT_SubjectKeyIdentifier(const ExtensionKind& kind,
                                     const USER_XEXT_SubjectKeyIdentifier* user, X509_EXTN* node) {
  ErrorScope err(kind.encode_fn);
  return encode_extension(err, kind.oidValue, user->critical, node, [&](DATA_BUFFER* value) {
    const DATA_BUFFER id =
        field_octets(user->keyIdentifier, user->keyIdentifierLength, kKeyIdentifierSize);
    if (ASN1_Encode_Octet_String(id, value) != 0) return err.fail(2, "ASN1_Encode_Octet_String");
    return 0u;
  });
}

u32 Decode_XEXT_SubjectKeyIdentifier(const ExtensionKind& kind, const X509_EXTN* node,
                                     XEXT_Octets* out) {
  ErrorScope err(kind.decode_fn);
  *out = XEXT_Octets{{0, nullptr}, node->critical};
  if (ASN1_Decode_Octet_String(node->extnValue.length, node->extnValue.data, &out->octets) != 0) {
    return err.fail(1, "ASN1_Decode_Octet_String");
  }
  return 0;
}

// ---- PrivateKeyUsagePeriod ------------------------------------------------------------

u32 Encode_XEXT_PrivateKeyUsagePeriod(const ExtensionKind& kind,
                                      const USER_XEXT_PrivateKeyUsagePeriod* user,
                                      X509_EXTN* node) {
  ErrorScope err(kind.encode_fn);
  return encode_extension(err, kind.oidValue, user->critical, node, [&](DATA_BUFFER* value) {
    FieldBuilder parts;
    const struct {
      u32 present;
      const char* text;
      u8 tag;
    } bounds[] = {{user->notBeforePresent, user->notBefore, kContext0},
                  {user->notAfterPresent, user->notAfter, kContext1}};
    for (int k = 0; k < 2; ++k) {
      const auto& b = bounds[k];
      const int step = 2 + 2 * k;  // 2, 3 for notBefore; 4, 5 for notAfter
      if (b.present == 0) continue;
      char time[kTimeDigits + 1];
      const DATA_BUFFER digits = field_text(b.text, kTimeDigits);
      std::memcpy(time, digits.data, digits.length);
      time[digits.length] = 'Z';
      DATA_BUFFER* e = parts.append();
      if (e == nullptr) return err.fail(step, "new_ASN1_SEQUENCE");
      const DATA_BUFFER text{digits.length + 1, reinterpret_cast<u8*>(time)};
      if (encode_implicit(text, b.tag, e) != 0) {
        return err.fail(step + 1, "ASN1_Encode_Octet_String");
      }
    }
    if (ASN1_Encode_Sequence(parts.head(), value) != 0) {
      return err.fail(6, "ASN1_Encode_Sequence");
    }
    return 0u;
  });
}

u32 Decode_XEXT_PrivateKeyUsagePeriod(const ExtensionKind& kind, const X509_EXTN* node,
                                      XEXT_PrivateKeyUsagePeriod* period) {
  ErrorScope err(kind.decode_fn);
  *period = XEXT_PrivateKeyUsagePeriod{};
  period->critical = node->critical;
  FieldReader parts;
  if (split(node->extnValue, &parts) != 0) {
    return err.fail(1, "ASN1_Decode_Sequence");
  }
  auto undo = on_exit([&] { free_XEXT_PrivateKeyUsagePeriod(period); });
  for (const ASN1_SEQUENCE* p = parts.head(); p != nullptr; p = p->next) {
    const u8 tag = first_octet(p);
    u8* present = tag == kContext0 ? &period->notBeforePresent : &period->notAfterPresent;
    DATA_BUFFER* text = tag == kContext0 ? &period->notBefore : &period->notAfter;
    DerElement e{};
    if ((tag != kContext0 && tag != kContext1) || *present != 0) return err.fail(2, kMalformed);
    if (!implicit_contents(p->value, tag, &e)) return err.fail(3, kMalformed);
    if (copy_DATA_BUFFER(text, e.length, e.contents) != 0) return err.fail(4, "copy_DATA_BUFFER");
    *present = 1;
  }
  undo.release();
  return 0;
}

// ---- CertificatePolicies --------------------------------------------------------------

namespace {

// PolicyQualifierInfo ::= SEQUENCE { id-qt-cps, IA5String }, wrapped alone in the
// SEQUENCE OF that policyQualifiers is.
u32 encode_cps_qualifier(const ErrorScope& err, DATA_BUFFER text, DATA_BUFFER* out) {
  ASN1_OBJECT_ID cps{kIdQtCps, {0, nullptr}};
  if (ASN1_Find_Object_ID(&cps) != 0) return err.fail(10, "ASN1_Find_Object_ID");
  auto free_cps = on_exit([&] { free_ASN1_OBJECT_ID(&cps); });
  FieldBuilder info;
  DATA_BUFFER* e = info.append();
  if (e == nullptr) return err.fail(11, "new_ASN1_SEQUENCE");
  if (ASN1_Encode_Object(cps, e) != 0) return err.fail(12, "ASN1_Encode_Object");
  if ((e = info.append()) == nullptr) return err.fail(13, "new_ASN1_SEQUENCE");
  if (ASN1_Encode_IA5String(text, e) != 0) return err.fail(14, "ASN1_Encode_IA5String");
  FieldBuilder qualifiers;
  if ((e = qualifiers.append()) == nullptr) return err.fail(15, "new_ASN1_SEQUENCE");
  if (ASN1_Encode_Sequence(info.head(), e) != 0) return err.fail(16, "ASN1_Encode_Sequence");
  if (ASN1_Encode_Sequence(qualifiers.head(), out) != 0) {
    return err.fail(17, "ASN1_Encode_Sequence");
  }
  return 0;
}

// PolicyInformation ::= SEQUENCE { policyIdentifier, policyQualifiers OPTIONAL }
u32 encode_policy(const ErrorScope& err, DATA_BUFFER identifier, DATA_BUFFER qualifier,
                  DATA_BUFFER* out) {
  FieldBuilder info;
  DATA_BUFFER* e = info.append();
  if (e == nullptr) return err.fail(2, "new_ASN1_SEQUENCE");
  if (ASN1_Encode_Object(ASN1_OBJECT_ID{0, identifier}, e) != 0) {
    return err.fail(3, "ASN1_Encode_Object");
  }
  if (qualifier.length > 0) {
    if ((e = info.append()) == nullptr) return err.fail(4, "new_ASN1_SEQUENCE");
    if (encode_cps_qualifier(err, qualifier, e) != 0) return 1;
  }
  if (ASN1_Encode_Sequence(info.head(), out) != 0) return err.fail(5, "ASN1_Encode_Sequence");
  return 0;
}

// The characters of the first CPS qualifier in a policyQualifiers element; other kinds of
// qualifier are skipped, and a policy without one gets the empty text.
u32 read_cps_qualifier(const ErrorScope& err, const DATA_BUFFER& element, DATA_BUFFER* text) {
  FieldReader qualifiers;
  if (split(element, &qualifiers) != 0) {
    return err.fail(10, "ASN1_Decode_Sequence");
  }
  for (const ASN1_SEQUENCE* q = qualifiers.head(); q != nullptr; q = q->next) {
    FieldReader info;
    if (split(q->value, &info) != 0) {
      return err.fail(11, "ASN1_Decode_Sequence");
    }
    const ASN1_SEQUENCE* id = info.head();
    if (id == nullptr || id->next == nullptr) return err.fail(12, kMalformed);
    ASN1_OBJECT_ID qualifier_id{0, {0, nullptr}};
    if (ASN1_Decode_Object(id->value.length, id->value.data, &qualifier_id) != 0) {
      return err.fail(13, "ASN1_Decode_Object");
    }
    const u32 known = ASN1_Find_Oid_Value(&qualifier_id);
    free_ASN1_OBJECT_ID(&qualifier_id);
    if (known != 0 || qualifier_id.oidValue != kIdQtCps || first_octet(id->next) != kIA5StringTag) {
      continue;
    }
    if (ASN1_Decode_IA5String(id->next->value.length, id->next->value.data, text) != 0) {
      return err.fail(14, "ASN1_Decode_IA5String");
    }
    return 0;
  }
  return 0;
}

}  // namespace

u32 Encode_XEXT_CertificatePolicies(const ExtensionKind& kind,
                                    const USER_XEXT_CertificatePolicies* user, X509_EXTN* node) {
  ErrorScope err(kind.encode_fn);
  return encode_extension(err, kind.oidValue, user->critical, node, [&](DATA_BUFFER* value) {
    FieldBuilder policies;
    const u32 count = std::min(user->count, kPolicySlots);
    for (u32 i = 0; i < count; ++i) {
      DATA_BUFFER* e = policies.append();
      if (e == nullptr) return err.fail(6, "new_ASN1_SEQUENCE");
      const DATA_BUFFER identifier =
          field_octets(user->policyIdentifier[i], user->policyIdentifierLength[i], kPolicyOidSize);
      if (encode_policy(err, identifier, field_text(user->qualifier[i], kPolicyQualifierSize), e) !=
          0) {
        return 1u;
      }
    }
    if (ASN1_Encode_Sequence(policies.head(), value) != 0) {
      return err.fail(7, "ASN1_Encode_Sequence");
    }
    return 0u;
  });
}

u32 Decode_XEXT_CertificatePolicies(const ExtensionKind& kind, const X509_EXTN* node,
                                    XEXT_CertificatePolicies* policies) {
  ErrorScope err(kind.decode_fn);
  *policies = XEXT_CertificatePolicies{nullptr, nullptr, node->critical};
  FieldReader infos;
  if (split(node->extnValue, &infos) != 0) return err.fail(1, "ASN1_Decode_Sequence");
  auto undo = on_exit([&] { free_XEXT_CertificatePolicies(policies); });
  ASN1_SEQUENCE** identifiers = &policies->identifiers;
  ASN1_SEQUENCE** qualifiers = &policies->qualifiers;
  for (const ASN1_SEQUENCE* p = infos.head(); p != nullptr; p = p->next) {
    FieldReader info;
    if (split(p->value, &info) != 0) return err.fail(2, "ASN1_Decode_Sequence");
    const ASN1_SEQUENCE* id = info.head();
    if (id == nullptr) return err.fail(3, kMalformed);
    ASN1_OBJECT_ID policy_id{0, {0, nullptr}};
    if (ASN1_Decode_Object(id->value.length, id->value.data, &policy_id) != 0) {
      return err.fail(4, "ASN1_Decode_Object");
    }
    if (append_octets(&identifiers, &policy_id.oid) != 0) {
      return err.fail(5, "new_ASN1_SEQUENCE");
    }
    DATA_BUFFER text{0, nullptr};
    if (id->next != nullptr && read_cps_qualifier(err, id->next->value, &text) != 0) return 1;
    if (append_octets(&qualifiers, &text) != 0) return err.fail(6, "new_ASN1_SEQUENCE");
  }
  undo.release();
  return 0;
}

// ---- BasicConstraints -----------------------------------------------------------------

u32 Encode_XEXT_BasicConstraints(u8 cA, u8 pathLenConstraint, u8 pathLenPresent, u8 critical,
                                 X509_EXTN* node) {
  ErrorScope err(506);
  return encode_extension(err, kBasicConstraintsId, critical, node, [&](DATA_BUFFER* value) {
    FieldBuilder parts;
    // cA FALSE is the DEFAULT and left out; a path length means nothing without it.
    if (cA != 0) {
      DATA_BUFFER* e = parts.append();
      if (e == nullptr) return err.fail(18, "new_ASN1_SEQUENCE");
      if (ASN1_Encode_Boolean(1, e) != 0) return err.fail(19, "ASN1_Encode_Boolean");
      if (pathLenPresent != 0) {
        u8 length = pathLenConstraint;
        if ((e = parts.append()) == nullptr) return err.fail(18, "new_ASN1_SEQUENCE");
        if (ASN1_Encode_Integer(DATA_BUFFER{1, &length}, e) != 0) {
          return err.fail(12, "ASN1_Encode_Integer");
        }
      }
    }
    if (ASN1_Encode_Sequence(parts.head(), value) != 0) {
      return err.fail(20, "ASN1_Encode_Sequence");
    }
    return 0u;
  });
}

u32 Decode_XEXT_BasicConstraints(const X509_EXTN* node, XEXT_BasicConstraints* out) {
  ErrorScope err(508);
  *out = XEXT_BasicConstraints{0, 0, node->critical, 0};
  if (node->extnValue.length < 3) return 0;  // the empty SEQUENCE
  FieldReader parts;
  if (split(node->extnValue, &parts) != 0) {
    return err.fail(2, "ASN1_Decode_Sequence");
  }
  const ASN1_SEQUENCE* p = parts.head();
  if (p != nullptr && first_octet(p) == kBooleanTag) {
    if (ASN1_Decode_Boolean(p->value.length, p->value.data, &out->cA) != 0) {
      return err.fail(3, "ASN1_Decode_Boolean");
    }
    p = p->next;
  }
  if (p != nullptr && first_octet(p) == kIntegerTag) {
    DATA_BUFFER n{0, nullptr};
    if (ASN1_Decode_Integer(p->value.length, p->value.data, &n) != 0) {
      return err.fail(4, "ASN1_Decode_Integer");
    }
    auto free_n = on_exit([&] { free_DATA_BUFFER(&n); });
    if (n.length == 0 || n.length > 4) return err.fail(5, kMalformed);
    for (u32 i = 0; i < n.length; ++i)
      out->pathLenConstraint = out->pathLenConstraint << 8 | n.data[i];
    out->pathLenPresent = 1;
    p = p->next;
  }
  if (p != nullptr) return err.fail(6, kMalformed);
  return 0;
}

// ---- KeyUsage, Netscape certificate type, SET certificate type -------------------------

u32 Encode_XEXT_BitFlags(const ExtensionKind& kind, const USER_XEXT_BitFlags* user,
                         X509_EXTN* node) {
  ErrorScope err(kind.encode_fn);
  return encode_extension(err, kind.oidValue, user->critical, node, [&](DATA_BUFFER* value) {
    const u32 bits = user->bits & 0xFFFFu;
    if (bits == 0) {
      static constexpr u8 kNoBits[] = {0x03, 0x01, 0x00};
      if (copy_DATA_BUFFER(value, sizeof kNoBits, kNoBits) != 0) {
        return err.fail(2, "copy_DATA_BUFFER");
      }
      return 0u;
    }
    u8 octets[2] = {static_cast<u8>(bits), static_cast<u8>(bits >> 8)};
    const u32 length = bits < 0x100 ? 1 : 2;
    // DER drops the trailing zero bits of a named bit list: they become unused bits.
    const u32 unused = static_cast<u32>(std::countr_zero(octets[length - 1]));
    if (ASN1_Encode_Bit_String(BIT_DATA_BUFFER{length, unused, octets}, value) != 0) {
      return err.fail(3, "ASN1_Encode_Bit_String");
    }
    return 0u;
  });
}

u32 Decode_XEXT_BitFlags(const ExtensionKind& kind, const X509_EXTN* node,
                         USER_XEXT_BitFlags* out) {
  ErrorScope err(kind.decode_fn);
  BIT_DATA_BUFFER bits{0, 0, nullptr};
  if (ASN1_Decode_Bit_String(node->extnValue.length, node->extnValue.data, &bits) != 0) {
    return err.fail(1, "ASN1_Decode_Bit_String");
  }
  auto free_bits = on_exit([&] { free_BIT_DATA_BUFFER(&bits); });
  // Octets past the second name bits the caller's word has no place for.
  u32 word = 0;
  for (u32 i = 0; i < bits.length && i < 2; ++i) {
    u8 octet = bits.data[i];
    if (i + 1 == bits.length) octet &= static_cast<u8>(0xFF << bits.unusedBits);
    word |= u32{octet} << (8 * i);
  }
  *out = USER_XEXT_BitFlags{word, node->critical};
  return 0;
}

// ---- ExtKeyUsage ----------------------------------------------------------------------

u32 Encode_XEXT_ExtKeyUsage(const ExtensionKind& kind, const USER_XEXT_ExtKeyUsage* user,
                            X509_EXTN* node) {
  ErrorScope err(kind.encode_fn);
  return encode_extension(err, kind.oidValue, user->critical, node, [&](DATA_BUFFER* value) {
    FieldBuilder purposes;
    const u32 count = std::min(user->count, kKeyPurposeSlots);
    for (u32 i = 0; i < count; ++i) {
      DATA_BUFFER* e = purposes.append();
      if (e == nullptr) return err.fail(2, "new_ASN1_SEQUENCE");
      const ASN1_OBJECT_ID purpose{
          0, field_octets(user->purpose[i], user->purposeLength[i], kKeyPurposeSize)};
      if (ASN1_Encode_Object(purpose, e) != 0) return err.fail(3, "ASN1_Encode_Object");
    }
    if (ASN1_Encode_Sequence(purposes.head(), value) != 0) {
      return err.fail(4, "ASN1_Encode_Sequence");
    }
    return 0u;
  });
}

u32 Decode_XEXT_ExtKeyUsage(const ExtensionKind& kind, const X509_EXTN* node,
                            XEXT_ExtKeyUsage* out) {
  ErrorScope err(kind.decode_fn);
  *out = XEXT_ExtKeyUsage{nullptr, node->critical};
  FieldReader elements;
  if (split(node->extnValue, &elements) != 0) return err.fail(1, "ASN1_Decode_Sequence");
  auto undo = on_exit([&] {
    free_ASN1_SEQUENCE(out->purposes);
    out->purposes = nullptr;
  });
  ASN1_SEQUENCE** purposes = &out->purposes;
  for (const ASN1_SEQUENCE* p = elements.head(); p != nullptr; p = p->next) {
    ASN1_OBJECT_ID purpose{0, {0, nullptr}};
    if (ASN1_Decode_Object(p->value.length, p->value.data, &purpose) != 0) {
      return err.fail(2, "ASN1_Decode_Object");
    }
    if (append_octets(&purposes, &purpose.oid) != 0) return err.fail(3, "new_ASN1_SEQUENCE");
  }
  undo.release();
  return 0;
}

// ---- SET hashedRootKey ----------------------------------------------------------------

u32 Encode_SET_EXT_hashedRootKey(const ExtensionKind& kind, const USER_XEXT_HashedRootKey* user,
                                 X509_EXTN* node) {
  ErrorScope err(kind.encode_fn);
  return encode_extension(err, kind.oidValue, user->critical, node, [&](DATA_BUFFER* value) {
    const u32 length = std::min(user->length, kHashedRootKeySize);
    auto* p = static_cast<u8*>(std::malloc(sizeof kHashedRootKeyPrefix + length));
    if (p == nullptr) return err.fail(2, "malloc");
    std::memcpy(p, kHashedRootKeyPrefix, sizeof kHashedRootKeyPrefix);
    if (length > 0) std::memcpy(p + sizeof kHashedRootKeyPrefix, user->octets, length);
    *value = DATA_BUFFER{static_cast<u32>(sizeof kHashedRootKeyPrefix) + length, p};
    return 0u;
  });
}

u32 Decode_SET_EXT_hashedRootKey(const ExtensionKind& kind, const X509_EXTN* node,
                                 XEXT_Octets* out) {
  ErrorScope err(kind.decode_fn);
  *out = XEXT_Octets{{0, nullptr}, node->critical};
  const DATA_BUFFER& v = node->extnValue;
  if (v.length < sizeof kHashedRootKeyPrefix ||
      std::memcmp(v.data, kHashedRootKeyPrefix, sizeof kHashedRootKeyPrefix) != 0) {
    return err.fail(1, kMalformed);
  }
  if (copy_DATA_BUFFER(&out->octets, v.length - u32{sizeof kHashedRootKeyPrefix},
                       v.data + sizeof kHashedRootKeyPrefix) != 0) {
    return err.fail(2, "copy_DATA_BUFFER");
  }
  return 0;
}

// ---- private extension ----------------------------------------------------------------

u32 Encode_XEXT_Private(const ExtensionKind& kind, const USER_XEXT_Private* user, X509_EXTN* node) {
  ErrorScope err(kind.encode_fn);
  const DATA_BUFFER id = field_octets(user->identifier, user->identifierLength, kPrivateOidSize);
  if (copy_DATA_BUFFER(&node->extnID.oid, id.length, id.data) != 0) {
    return err.fail(1, "copy_DATA_BUFFER");
  }
  node->critical = user->critical != 0 ? 1 : 0;
  const DATA_BUFFER value = field_octets(user->value, user->valueLength, kPrivateValueSize);
  if (copy_DATA_BUFFER(&node->extnValue, value.length, value.data) != 0) {
    free_ASN1_OBJECT_ID(&node->extnID);
    return err.fail(2, "copy_DATA_BUFFER");
  }
  return 0;
}

}  // namespace hylorn
