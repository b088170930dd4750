#include "x509/tbs_cert.h"

#include <cstdlib>
#include <cstring>

#include "asn1/der.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "x509/extensions.h"
#include "x509/field_list.h"
#include "x509/name.h"
#include "x509/public_key.h"
#include "x509/time.h"

namespace hylorn {
namespace {

constexpr int kFnEncodeVersion = 201;
constexpr int kFnDecodeVersion = 202;
constexpr int kFnEncodeSerial = 203;
constexpr int kFnDecodeSerial = 204;
constexpr int kFnEncodeIssuerId = 215;
constexpr int kFnDecodeIssuerId = 216;
constexpr int kFnEncodeSubjectId = 217;
constexpr int kFnDecodeSubjectId = 218;
constexpr int kFnEncodeTbs = 219;
constexpr int kFnScanTbs = 220;
constexpr int kFnDecodeTbs = 221;
constexpr int kFnUserToTbs = 313;
constexpr int kFnTbsToUser = 314;

constexpr int kFnUserToSerial = 301;
constexpr int kFnSerialToUser = 302;
constexpr int kFnUserToUniqueId = 311;
constexpr int kFnUniqueIdToUser = 312;
constexpr int kFnUserToVersion = 319;
constexpr int kFnVersionToUser = 320;

constexpr u8 kLastVersion = 2;  // X.509 v3

// A fresh heap copy of length octets (null for none).
u32 duplicate(const ErrorScope& err, const u8* src, u32 length, u8** copy) {
  *copy = nullptr;
  if (length == 0) return 0;
  *copy = static_cast<u8*>(std::malloc(length));
  if (*copy == nullptr) return err.fail(1, "malloc");
  std::memcpy(*copy, src, length);
  return 0;
}

// UniqueIdentifier ::= BIT STRING, under an IMPLICIT tag: the BIT STRING's identifier
// octet is rewritten in place, in the output and (by the decoders) in the input.
constexpr u8 kBitStringTag = 0x03;
constexpr u8 kIssuerIdTag = 0x81;
constexpr u8 kSubjectIdTag = 0x82;

u32 decode_unique_id(int func_no, u32 total, u8* der, BIT_DATA_BUFFER* id) {
  ErrorScope err(func_no);
  if (total > 0) der[0] = kBitStringTag;
  if (ASN1_Decode_Bit_String(total, der, id) != 0) return err.fail(1, "ASN1_Decode_Bit_String");
  return 0;
}

// One field of the TBSCertificate, in DER order. Optional fields name their presence
// flag; the others are always there.
using TbsFlag = u8 X509_TBS_CERT::*;

struct TbsField {
  TbsFlag present;  // null for a field that is always written
  const char* encoder;
  u32 (*encode)(const X509_TBS_CERT& tbs, DATA_BUFFER* out);
  int missing_err;  // the decoder's numbers: the element is missing, its decoder failed
  int decode_err;
  const char* decoder;
  u32 (*decode)(DATA_BUFFER& element, X509_TBS_CERT* tbs);
};

constexpr TbsField kTbsFields[] = {
    {&X509_TBS_CERT::versionPresent, "Der_Encode_Version",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) { return Der_Encode_Version(t.version, o); }, 3, 4,
     "Der_Decode_Version",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return Der_Decode_Version(e.length, e.data, &t->version);
     }},
    {nullptr, "Der_Encode_serialNumber",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) {
       return Der_Encode_serialNumber(t.serialNumber, o);
     },
     6, 7, "Der_Decode_serialNumber",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return Der_Decode_serialNumber(e.length, e.data, &t->serialNumber);
     }},
    {nullptr, "Der_Encode_X509_Alg_Id",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) { return Der_Encode_X509_Alg_Id(&t.signature, o); },
     8, 9, "Der_Decode_X509_Alg_Id",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return Der_Decode_X509_Alg_Id(e.length, e.data, &t->signature);
     }},
    {nullptr, "Der_Encode_X500_Name",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) { return Der_Encode_X500_Name(t.issuer, o); }, 10,
     11, "Der_Decode_X500_Name",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return Der_Decode_X500_Name(e.length, e.data, &t->issuer);
     }},
    {nullptr, "Der_Encode_Validity",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) { return Der_Encode_Validity(&t.validity, o); }, 12,
     13, "Der_Decode_Validity",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return Der_Decode_Validity(e.length, e.data, &t->validity);
     }},
    {nullptr, "Der_Encode_X500_Name",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) { return Der_Encode_X500_Name(t.subject, o); }, 14,
     15, "Der_Decode_X500_Name",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return Der_Decode_X500_Name(e.length, e.data, &t->subject);
     }},
    {nullptr, "Der_Encode_X509_Public_Key",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) {
       return Der_Encode_X509_Public_Key(&t.subjectPublicKeyInfo, o);
     },
     16, 17, "Der_Decode_X509_Public_Key",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return Der_Decode_X509_Public_Key(e.length, e.data, &t->subjectPublicKeyInfo);
     }},
    {&X509_TBS_CERT::issuerUniqueIDPresent, "Der_Encode_X509_issuerUniqueID",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) {
       return Der_Encode_X509_issuerUniqueID(t.issuerUniqueID, o);
     },
     3, 18, "Der_Decode_X509_issuerUniqueID",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return Der_Decode_X509_issuerUniqueID(e.length, e.data, &t->issuerUniqueID);
     }},
    {&X509_TBS_CERT::subjectUniqueIDPresent, "Der_Encode_X509_subjectUniqueID",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) {
       return Der_Encode_X509_subjectUniqueID(t.subjectUniqueID, o);
     },
     19, 20, "Der_Decode_X509_subjectUniqueID",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return Der_Decode_X509_subjectUniqueID(e.length, e.data, &t->subjectUniqueID);
     }},
    // The [3] element travels whole; the extension coders read it later.
    {&X509_TBS_CERT::extensionsPresent, "copy_DATA_BUFFER",
     [](const X509_TBS_CERT& t, DATA_BUFFER* o) {
       return copy_DATA_BUFFER(o, t.extensions.length, t.extensions.data);
     },
     21, 22, "Der_Decode_X509_Extn",
     [](DATA_BUFFER& e, X509_TBS_CERT* t) {
       return copy_DATA_BUFFER(&t->extensions, e.length, e.data);
     }},
};

// The first octet of an element that marks each optional field.
struct TbsMarker {
  u8 tag;
  TbsFlag flag;
};
constexpr TbsMarker kTbsMarkers[] = {
    {0xA0, &X509_TBS_CERT::versionPresent},
    {kIssuerIdTag, &X509_TBS_CERT::issuerUniqueIDPresent},
    {kSubjectIdTag, &X509_TBS_CERT::subjectUniqueIDPresent},
    {0xA3, &X509_TBS_CERT::extensionsPresent},
};

}  // namespace

// Version ::= INTEGER { v1(0), v2(1), v3(2) }, under [0] EXPLICIT
u32 Der_Encode_Version(u8 version, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeVersion);
  DATA_BUFFER integer{};
  if (ASN1_Encode_Integer(DATA_BUFFER{1, &version}, &integer) != 0) {
    return err.fail(1, "ASN1_Encode_Integer");
  }
  const u32 r = ASN1_Encode_Explicit_Tag(integer, 0, out);
  free_DATA_BUFFER(&integer);
  if (r != 0) return err.fail(2, "ASN1_Encode_Explicit_Tag");
  return 0;
}

// The version is the INTEGER's first contents octet.
u32 Der_Decode_Version(u32 total, const u8* der, u8* version) {
  ErrorScope err(kFnDecodeVersion);
  DATA_BUFFER inner{};
  u8 tag = 0;
  if (ASN1_Decode_Explicit_Tag(total, der, &inner, &tag) != 0) {
    return err.fail(1, "ASN1_Decode_Explicit_Tag");
  }
  DATA_BUFFER integer{};
  const u32 r = ASN1_Decode_Integer(inner.length, inner.data, &integer);
  free_DATA_BUFFER(&inner);
  if (r != 0) return err.fail(2, "ASN1_Decode_Integer");
  if (integer.length == 0) return err.fail(3, "ASN1_Decode_Integer");
  *version = integer.data[0];
  free_DATA_BUFFER(&integer);
  return 0;
}

// CertificateSerialNumber ::= INTEGER
u32 Der_Encode_serialNumber(DATA_BUFFER serial, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeSerial);
  if (ASN1_Encode_Integer(serial, out) != 0) return err.fail(1, "ASN1_Encode_Integer");
  return 0;
}

u32 Der_Decode_serialNumber(u32 total, const u8* der, DATA_BUFFER* serial) {
  ErrorScope err(kFnDecodeSerial);
  if (ASN1_Decode_Integer(total, der, serial) != 0) return err.fail(1, "ASN1_Decode_Integer");
  return 0;
}

// issuerUniqueID [1] IMPLICIT UniqueIdentifier
u32 Der_Encode_X509_issuerUniqueID(BIT_DATA_BUFFER id, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeIssuerId);
  if (ASN1_Encode_Bit_String(id, out) != 0) return err.fail(1, "ASN1_Encode_Bit_String");
  out->data[0] = kIssuerIdTag;
  return 0;
}

u32 Der_Decode_X509_issuerUniqueID(u32 total, u8* der, BIT_DATA_BUFFER* id) {
  return decode_unique_id(kFnDecodeIssuerId, total, der, id);
}

// subjectUniqueID [2] IMPLICIT UniqueIdentifier
u32 Der_Encode_X509_subjectUniqueID(BIT_DATA_BUFFER id, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeSubjectId);
  if (Der_Encode_X509_issuerUniqueID(id, out) != 0) {
    return err.fail(1, "Der_Encode_X509_issuerUniqueID");
  }
  out->data[0] = kSubjectIdTag;
  return 0;
}

u32 Der_Decode_X509_subjectUniqueID(u32 total, u8* der, BIT_DATA_BUFFER* id) {
  return decode_unique_id(kFnDecodeSubjectId, total, der, id);
}

// TBSCertificate ::= SEQUENCE { version, serialNumber, signature, issuer, validity,
//   subject, subjectPublicKeyInfo, issuerUniqueID, subjectUniqueID, extensions }
u32 Der_Encode_X509_Tbs_Cert(const X509_TBS_CERT* tbs, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodeTbs);
  FieldBuilder fields;
  int err_no = 0;
  for (const TbsField& f : kTbsFields) {
    err_no += 2;
    if (f.present != nullptr && tbs->*f.present == 0) continue;
    DATA_BUFFER* element = fields.append();
    if (element == nullptr) return err.fail(err_no - 1, "new_ASN1_SEQUENCE");
    if (f.encode(*tbs, element) != 0) return err.fail(err_no, f.encoder);
  }
  if (ASN1_Encode_Sequence(fields.head(), out) != 0) {
    return err.fail(err_no + 1, "ASN1_Encode_Sequence");
  }
  return 0;
}

// Optional fields are found by their tags wherever they stand; the decoder then reads
// the elements by position.
u32 Scan_X509_Tbs_Cert(const ASN1_SEQUENCE* list, X509_TBS_CERT* tbs) {
  ErrorScope err(kFnScanTbs);
  for (const TbsMarker& m : kTbsMarkers) tbs->*m.flag = 0;
  if (list == nullptr) return err.fail(1, "p==NULL");
  for (const ASN1_SEQUENCE* node = list; node != nullptr; node = node->next) {
    if (node->value.length == 0) continue;
    for (const TbsMarker& m : kTbsMarkers) {
      if (node->value.data[0] == m.tag) tbs->*m.flag = 1;
    }
  }
  return 0;
}

u32 Der_Decode_X509_Tbs_Cert(u32 total, const u8* der, X509_TBS_CERT* tbs) {
  ErrorScope err(kFnDecodeTbs);
  auto empty_record = on_exit([&] {
    free_X509_TBS_CERT(tbs);
    ini_X509_TBS_CERT(tbs);
  });
  FieldReader fields;
  if (ASN1_Decode_Sequence(total, der, fields.out()) != 0) {
    return err.fail(2, "ASN1_Decode_Sequence");
  }
  if (Scan_X509_Tbs_Cert(fields.head(), tbs) != 0) return err.fail(3, "Scan_X509_Tbs_Cert");
  tbs->version = 0;
  for (const TbsField& f : kTbsFields) {
    if (f.present != nullptr && tbs->*f.present == 0) continue;
    DATA_BUFFER* element = fields.next();
    if (element == nullptr) return err.fail(f.missing_err, " ");
    if (f.decode(*element, tbs) != 0) return err.fail(f.decode_err, f.decoder);
  }
  empty_record.release();
  return 0;
}

u32 check_version(int func_no, u8 last, u8 version, u8* out) {
  ErrorScope err(func_no);
  if (version > last) return err.fail(1, "version error");
  *out = version;
  return 0;
}

u32 u2l_version(u8 version, u8* out) {
  return check_version(kFnUserToVersion, kLastVersion, version, out);
}

u32 l2u_version(u8 version, u8* out) {
  return check_version(kFnVersionToUser, kLastVersion, version, out);
}

// The caller's octets are taken as they are; the limits apply on the way back.
u32 u2l_serialNumber(const u8* serial, u32 length, DATA_BUFFER* out) {
  ErrorScope err(kFnUserToSerial);
  u8* copy = nullptr;
  if (duplicate(err, serial, length, &copy) != 0) return 1;
  *out = DATA_BUFFER{length, copy};
  return 0;
}

u32 l2u_serialNumber(const DATA_BUFFER* serial, u8 out[kSerialSize], u16* length) {
  ErrorScope err(kFnSerialToUser);
  if (serial->length == 0 || serial->length > kSerialSize) {
    return err.fail(1, "serial number error");
  }
  std::memcpy(out, serial->data, serial->length);
  *length = static_cast<u16>(serial->length);
  return 0;
}

u32 u2l_certUniqueID(const USER_UNIQUE_ID* user, BIT_DATA_BUFFER* id) {
  ErrorScope err(kFnUserToUniqueId);
  u8* copy = nullptr;
  if (duplicate(err, user->id, user->idLength, &copy) != 0) return 1;
  *id = BIT_DATA_BUFFER{user->idLength, 0, copy};
  return 0;
}

u32 l2u_certUniqueID(const BIT_DATA_BUFFER* id, USER_UNIQUE_ID* user) {
  ErrorScope err(kFnUniqueIdToUser);
  if (id->length >= kUniqueIdSize) return err.fail(1, "UniqueID too long");
  if (id->length > 0) std::memcpy(user->id, id->data, id->length);
  user->idLength = static_cast<u16>(id->length);
  return 0;
}

// Each step's failure ends the conversion; what was built stays in tbs for the caller.
u32 u2l_USER_X509_TBS_CERT(const USER_X509_TBS_CERT* user, X509_TBS_CERT* tbs) {
  ErrorScope err(kFnUserToTbs);
  if (ini_X509_TBS_CERT(tbs) != 0) return err.fail(1, "ini_X509_TBS_CERT");
  if (u2l_version(user->version, &tbs->version) != 0) return err.fail(2, "u2l_version");
  tbs->versionPresent = user->versionPresent;
  if (u2l_serialNumber(user->serialNumber, user->serialNumberLength, &tbs->serialNumber) != 0) {
    return err.fail(3, "u2l_serialNumber");
  }
  if (u2l_signature(&user->signature, &tbs->signature) != 0) return err.fail(4, "u2l_signature");
  if (u2l_X500_NAME(&user->issuer, &tbs->issuer) != 0) return err.fail(5, "u2l_X500_NAME");
  if (u2l_X509_VALIDITY(user->validity.notBefore, user->validity.notAfter, &tbs->validity) != 0) {
    return err.fail(6, "u2l_X509_VALIDITY");
  }
  if (u2l_X500_NAME(&user->subject, &tbs->subject) != 0) return err.fail(7, "u2l_X500_NAME");
  if (u2l_subjectPublicKeyInfo(&user->subjectPublicKeyInfo, &tbs->subjectPublicKeyInfo) != 0) {
    return err.fail(8, "u2l_subjectPublicKeyInfo");
  }
  if (user->issuerUniqueIDPresent != 0) {
    if (u2l_certUniqueID(&user->issuerUniqueID, &tbs->issuerUniqueID) != 0) {
      return err.fail(9, "u2l_certUniqueID");
    }
    tbs->issuerUniqueIDPresent = user->issuerUniqueIDPresent;
  }
  if (user->subjectUniqueIDPresent != 0) {
    if (u2l_certUniqueID(&user->subjectUniqueID, &tbs->subjectUniqueID) != 0) {
      return err.fail(10, "u2l_certUniqueID");
    }
    tbs->subjectUniqueIDPresent = user->subjectUniqueIDPresent;
  }
  if (user->extensionsPresent != 0) {
    if (u2l_CERT_EXTN_INFO(&user->extensions, &tbs->extensions) != 0) {
      return err.fail(11, "u2l_CERT_EXTN_INFO");
    }
    tbs->extensionsPresent = user->extensionsPresent;
  }
  return 0;
}

// The caller's versionPresent is not set on the way back: it stays 0.
u32 l2u_USER_X509_TBS_CERT(const X509_TBS_CERT* tbs, USER_X509_TBS_CERT* user) {
  ErrorScope err(kFnTbsToUser);
  if (ini_USER_X509_TBS_CERT(user) != 0) return err.fail(3, "ini_USER_X509_TBS_CERT");
  if (l2u_version(tbs->version, &user->version) != 0) return err.fail(5, "l2u_version");
  if (l2u_serialNumber(&tbs->serialNumber, user->serialNumber, &user->serialNumberLength) != 0) {
    return err.fail(6, "l2u_serialNumber");
  }
  if (l2u_signature(&tbs->signature, &user->signature) != 0) return err.fail(7, "l2u_signature");
  if (l2u_X500_NAME(tbs->issuer, &user->issuer) != 0) return err.fail(8, "l2u_X500_NAME");
  if (l2u_X509_VALIDITY(tbs->validity, user->validity.notBefore, user->validity.notAfter) != 0) {
    return err.fail(9, "l2u_X509_VALIDITY");
  }
  if (l2u_X500_NAME(tbs->subject, &user->subject) != 0) return err.fail(10, "l2u_X500_NAME");
  if (l2u_subjectPublickeyInfo(&tbs->subjectPublicKeyInfo, &user->subjectPublicKeyInfo) != 0) {
    return err.fail(11, "l2u_subjectPublickeyInfo");
  }
  if (tbs->issuerUniqueIDPresent != 0) {
    if (l2u_certUniqueID(&tbs->issuerUniqueID, &user->issuerUniqueID) != 0) {
      return err.fail(12, "l2u_certUniqueID");
    }
    user->issuerUniqueIDPresent = tbs->issuerUniqueIDPresent;
  }
  if (tbs->subjectUniqueIDPresent != 0) {
    if (l2u_certUniqueID(&tbs->subjectUniqueID, &user->subjectUniqueID) != 0) {
      return err.fail(13, "l2u_certUniqueID");
    }
    user->subjectUniqueIDPresent = tbs->subjectUniqueIDPresent;
  }
  if (tbs->extensionsPresent != 0) {
    if (l2u_extensions(&tbs->extensions, &user->extensions) != 0) {
      return err.fail(14, "l2u_extensions");
    }
    user->extensionsPresent = tbs->extensionsPresent;
  }
  return 0;
}

}  // namespace hylorn
