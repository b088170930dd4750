// The TBSCertList and its revoked entries in DER, and the internal records' life cycle.
#include "crl/tbs_cert_list.h"

#include <cstdlib>

#include "asn1/der.h"
#include "asn1/list.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "x509/field_list.h"
#include "x509/name.h"
#include "x509/public_key.h"
#include "x509/tbs_cert.h"
#include "x509/time.h"

namespace hylorn {
namespace {

constexpr u8 kIntegerTag = 0x02;
constexpr u8 kSequenceTag = 0x30;
constexpr u8 kUtcTimeTag = 0x17;
constexpr u8 kGeneralizedTimeTag = 0x18;
constexpr u8 kCrlExtensionsTag0 = 0xA0;

// Appends one element to list, made by encode into the new node: err_no reports a node
// that cannot be made, err_no + 1 the coder's failure.
template <class Encode>
u32 add(const ErrorScope& err, FieldBuilder& list, int err_no, const char* msg, Encode encode) {
  DATA_BUFFER* part = list.append();
  if (part == nullptr) return err.fail(err_no, "new_ASN1_SEQUENCE");
  if (encode(part) != 0) return err.fail(err_no + 1, msg);
  return 0;
}

// Components are whole elements of two octets or more, so the tag is always there.
u8 tag_of(const DATA_BUFFER* element) {
  return element->data[0];
}

bool is_time(const DATA_BUFFER* element) {
  return tag_of(element) == kUtcTimeTag || tag_of(element) == kGeneralizedTimeTag;
}

// Where a Time belongs, an element of another type is kept as kNotATime so that the
// conversion reports it; the Time coder itself refuses any other tag.
u32 decode_time(const DATA_BUFFER* element, X509_TIME* time) {
  if (is_time(element)) return Der_Decode_X509_TIME(element->length, element->data, time);
  time->type = kNotATime;
  time->text[0] = '\0';
  return 0;
}

//   revokedCertificates SEQUENCE OF SEQUENCE { ... }   (905)
u32 encode_revoked_list(const CRL_REVOKED_CERT* entry, DATA_BUFFER* out) {
  ErrorScope err(905);
  FieldBuilder list;
  for (; entry != nullptr; entry = entry->next) {
    if (add(err, list, 1, "Der_Encode_REVOKED_CERT",
            [&](DATA_BUFFER* part) { return Der_Encode_REVOKED_CERT(entry, part); })) {
      return 1;
    }
  }
  if (ASN1_Encode_Sequence(list.head(), out) != 0) return err.fail(3, "ASN1_Encode_Sequence");
  return 0;
}

// Entries are decoded in DER order and appended at the tail, so a list of any length
// is read in linear time.
u32 decode_revoked_list(const ErrorScope& err, const DATA_BUFFER* element, CRL_REVOKED_CERT** out) {
  FieldReader entries;
  if (ASN1_Decode_Sequence(element->length, element->data, entries.out()) != 0) {
    return err.fail(10, "ASN1_Decode_Sequence");
  }
  CRL_REVOKED_CERT** tail = out;
  for (const DATA_BUFFER* e = entries.next(); e != nullptr; e = entries.next()) {
    if (new_CRL_REVOKED_CERT(tail) != 0) return err.fail(11, "new_CRL_REVOKED_CERT");
    if (Der_Decode_REVOKED_CERT(e->length, e->data, *tail) != 0) {
      return err.fail(12, "Der_Decode_REVOKED_CERT");
    }
    tail = &(*tail)->next;
  }
  return 0;
}

}  // namespace

// ---- life cycle ------------------------------------------------------------------------

u32 new_USER_revokedCert_INFO(USER_revokedCert_INFO** entry) {
  const auto err = ErrorScope::keep_list(938);
  auto* e = static_cast<USER_revokedCert_INFO*>(std::malloc(sizeof(USER_revokedCert_INFO)));
  if (e == nullptr) return err.fail(1, "malloc");
  *e = USER_revokedCert_INFO{};
  *entry = e;
  return 0;
}

u32 free_USER_revokedCert_INFO(USER_revokedCert_INFO* entry) {
  while (entry != nullptr) {
    USER_revokedCert_INFO* next = entry->next;
    std::free(entry);
    entry = next;
  }
  return 0;
}

u32 new_CRL_REVOKED_CERT(CRL_REVOKED_CERT** entry) {
  const auto err = ErrorScope::keep_list(939);
  auto* e = static_cast<CRL_REVOKED_CERT*>(std::malloc(sizeof(CRL_REVOKED_CERT)));
  if (e == nullptr) return err.fail(1, "malloc");
  *e = CRL_REVOKED_CERT{};
  *entry = e;
  return 0;
}

u32 free_CRL_REVOKED_CERT(CRL_REVOKED_CERT* entry) {
  while (entry != nullptr) {
    CRL_REVOKED_CERT* next = entry->next;
    free_DATA_BUFFER(&entry->userCertificate);
    free_DATA_BUFFER(&entry->crlEntryExtensions);
    std::free(entry);
    entry = next;
  }
  return 0;
}

u32 ini_CRL_TBS_CERT_LIST(CRL_TBS_CERT_LIST* tbs) {
  *tbs = CRL_TBS_CERT_LIST{};
  return ini_X509_ALG_ID(&tbs->signature);
}

u32 free_CRL_TBS_CERT_LIST(CRL_TBS_CERT_LIST* tbs) {
  free_X509_ALG_ID(&tbs->signature);
  free_X500_NAME(tbs->issuer);
  free_CRL_REVOKED_CERT(tbs->revokedCertificates);
  free_DATA_BUFFER(&tbs->crlExtensions);
  return ini_CRL_TBS_CERT_LIST(tbs);
}

// ---- one revoked entry -----------------------------------------------------------------

//   SEQUENCE { userCertificate CertificateSerialNumber, revocationDate Time,
//              crlEntryExtensions Extensions OPTIONAL }
u32 Der_Encode_REVOKED_CERT(const CRL_REVOKED_CERT* entry, DATA_BUFFER* out) {
  ErrorScope err(903);
  FieldBuilder list;
  if (add(err, list, 1, "Der_Encode_serialNumber",
          [&](DATA_BUFFER* p) { return Der_Encode_serialNumber(entry->userCertificate, p); }) ||
      add(err, list, 3, "Der_Encode_X509_TIME",
          [&](DATA_BUFFER* p) { return Der_Encode_X509_TIME(&entry->revocationDate, p); })) {
    return 1;
  }
  const DATA_BUFFER& ext = entry->crlEntryExtensions;
  if (entry->crlEntryExtensionsPresent &&
      add(err, list, 5, "copy_DATA_BUFFER",
          [&](DATA_BUFFER* p) { return copy_DATA_BUFFER(p, ext.length, ext.data); })) {
    return 1;
  }
  if (ASN1_Encode_Sequence(list.head(), out) != 0) return err.fail(7, "ASN1_Encode_Sequence");
  return 0;
}

u32 Der_Decode_REVOKED_CERT(u32 total, const u8* der, CRL_REVOKED_CERT* entry) {
  ErrorScope err(904);
  FieldReader parts;
  if (ASN1_Decode_Sequence(total, der, parts.out()) != 0) {
    return err.fail(1, "ASN1_Decode_Sequence");
  }
  auto clear = on_exit([&] {
    free_DATA_BUFFER(&entry->userCertificate);
    free_DATA_BUFFER(&entry->crlEntryExtensions);
  });
  DATA_BUFFER* p = parts.next();
  if (p == nullptr) return err.fail(2, " ");
  if (Der_Decode_serialNumber(p->length, p->data, &entry->userCertificate) != 0) {
    return err.fail(3, "Der_Decode_serialNumber");
  }
  p = parts.next();
  if (p == nullptr) return err.fail(4, " ");
  if (decode_time(p, &entry->revocationDate) != 0) return err.fail(5, "Der_Decode_X509_TIME");
  p = parts.next();
  if (p != nullptr && tag_of(p) == kSequenceTag) {
    // The split list holds its own copy of the element: the entry takes it over.
    entry->crlEntryExtensions = *p;
    ini_DATA_BUFFER(p);
    entry->crlEntryExtensionsPresent = 1;
    p = parts.next();
  }
  if (p != nullptr) return err.fail(6, "unexpected element");
  clear.release();
  return 0;
}

// ---- the TBSCertList -------------------------------------------------------------------

u32 Der_Encode_CRL_TBS_CERT_LIST(const CRL_TBS_CERT_LIST* tbs, DATA_BUFFER* out) {
  ErrorScope err(901);
  FieldBuilder list;
  // Version ::= INTEGER { v1(0), v2(1) }, untagged here unlike a certificate's.
  const DATA_BUFFER version{1, const_cast<u8*>(&tbs->version)};
  if (tbs->versionPresent && add(err, list, 1, "ASN1_Encode_Integer",
                                 [&](DATA_BUFFER* p) { return ASN1_Encode_Integer(version, p); })) {
    return 1;
  }
  if (add(err, list, 3, "Der_Encode_X509_Alg_Id",
          [&](DATA_BUFFER* p) { return Der_Encode_X509_Alg_Id(&tbs->signature, p); }) ||
      add(err, list, 5, "Der_Encode_X500_Name",
          [&](DATA_BUFFER* p) { return Der_Encode_X500_Name(tbs->issuer, p); }) ||
      add(err, list, 7, "Der_Encode_X509_TIME",
          [&](DATA_BUFFER* p) { return Der_Encode_X509_TIME(&tbs->thisUpdate, p); })) {
    return 1;
  }
  if (tbs->nextUpdatePresent && add(err, list, 9, "Der_Encode_X509_TIME", [&](DATA_BUFFER* p) {
        return Der_Encode_X509_TIME(&tbs->nextUpdate, p);
      })) {
    return 1;
  }
  if (tbs->revokedCertificatesPresent &&
      add(err, list, 11, "revokedCertificates",
          [&](DATA_BUFFER* p) { return encode_revoked_list(tbs->revokedCertificates, p); })) {
    return 1;
  }
  const DATA_BUFFER& ext = tbs->crlExtensions;
  if (tbs->crlExtensionsPresent && add(err, list, 13, "copy_DATA_BUFFER", [&](DATA_BUFFER* p) {
        return copy_DATA_BUFFER(p, ext.length, ext.data);
      })) {
    return 1;
  }
  if (ASN1_Encode_Sequence(list.head(), out) != 0) return err.fail(15, "ASN1_Encode_Sequence");
  return 0;
}

u32 Der_Decode_CRL_TBS_CERT_LIST(u32 total, const u8* der, CRL_TBS_CERT_LIST* tbs) {
  ErrorScope err(902);
  FieldReader parts;
  if (ASN1_Decode_Sequence(total, der, parts.out()) != 0) {
    return err.fail(1, "ASN1_Decode_Sequence");
  }
  auto clear = on_exit([&] { free_CRL_TBS_CERT_LIST(tbs); });
  const DATA_BUFFER* p = parts.next();
  if (p != nullptr && tag_of(p) == kIntegerTag) {
    DATA_BUFFER version{};
    if (ASN1_Decode_Integer(p->length, p->data, &version) != 0) {
      return err.fail(2, "ASN1_Decode_Integer");
    }
    // A version of more than one octet is none the library knows; the conversion says so.
    tbs->version = version.length == 1 ? version.data[0] : 0xFF;
    free_DATA_BUFFER(&version);
    tbs->versionPresent = 1;
    p = parts.next();
  }
  if (p == nullptr) return err.fail(3, " ");
  if (Der_Decode_X509_Alg_Id(p->length, p->data, &tbs->signature) != 0) {
    return err.fail(4, "Der_Decode_X509_Alg_Id");
  }
  p = parts.next();
  if (p == nullptr) return err.fail(5, " ");
  if (Der_Decode_X500_Name(p->length, p->data, &tbs->issuer) != 0) {
    return err.fail(6, "Der_Decode_X500_Name");
  }
  p = parts.next();
  if (p == nullptr) return err.fail(7, " ");
  if (decode_time(p, &tbs->thisUpdate) != 0) return err.fail(8, "Der_Decode_X509_TIME");
  p = parts.next();
  if (p != nullptr && is_time(p)) {
    if (decode_time(p, &tbs->nextUpdate) != 0) return err.fail(9, "Der_Decode_X509_TIME");
    tbs->nextUpdatePresent = 1;
    p = parts.next();
  }
  if (p != nullptr && tag_of(p) == kSequenceTag) {
    if (decode_revoked_list(err, p, &tbs->revokedCertificates) != 0) return 1;
    tbs->revokedCertificatesPresent = 1;
    p = parts.next();
  }
  if (p != nullptr && tag_of(p) == kCrlExtensionsTag0) {
    if (copy_DATA_BUFFER(&tbs->crlExtensions, p->length, p->data) != 0) {
      return err.fail(13, "copy_DATA_BUFFER");
    }
    tbs->crlExtensionsPresent = 1;
    p = parts.next();
  }
  if (p != nullptr) return err.fail(14, "unexpected element");
  clear.release();
  return 0;
}

}  // namespace hylorn
