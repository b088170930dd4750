// The records of a CRL in its two in-memory forms.
//
// The caller (USER_) form is what the exported sessions fill and read: flat fixed-size
// fields with the revoked certificates as a singly linked list. The internal form owns
// heap buffers and is what the DER coders read and write. The limits of the fixed
// fields are checked where data moves into them (the l2u_ conversions and the exported
// functions), never in the decoders.
#pragma once

#include "asn1/algorithm.h"
#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/records.h"

namespace hylorn {

inline constexpr u32 kCrlNumberSize = 128;  // CRLNumber INTEGER content octets

// The caller's flag words: extensions asked for / found, and which are critical.
inline constexpr u32 kCrlFlagAuthorityKeyId = 0x0001;
inline constexpr u32 kCrlFlagReason = 0x0400;
inline constexpr u32 kCrlFlagInvalidityDate = 0x0800;
inline constexpr u32 kCrlFlagCrlNumber = 0x1000;

// ---- caller form ---------------------------------------------------------------------

// One revoked certificate. A new entry is zero-filled with no successor.
struct USER_revokedCert_INFO {
  u8 serialNumber[kSerialSize];  // INTEGER content octets
  u16 serialNumberLength;
  char revocationDate[kTimeTextSize];  // YYYYMMDDHHMMSS
  u32 reasonCode;                      // CRLReason, as the caller gives it
  u32 reasonCritical;
  char invalidityDate[kTimeTextSize];
  u32 invalidityCritical;
  u8 reasonPresent;
  u8 invalidityDatePresent;
  u8 entryExtensionsPresent;  // set with either of the two above
  USER_revokedCert_INFO* next;
};

// The CRL's own extensions.
struct USER_CRL_EXTN_INFO {
  u32 authorityKeyIdentifierPresent;
  u32 crlNumberPresent;
  USER_XEXT_AuthorityKeyIdentifier authorityKeyIdentifier;  // with its own critical flag
  u8 crlNumber[kCrlNumberSize];
  u32 crlNumberLength;
  u32 crlNumberCritical;
};

struct USER_crlTbsCertList_INFO {
  u8 version;                  // 0 (v1) or 1 (v2)
  USER_X509_ALG_ID signature;  // its number is also the signer's hash identifier
  USER_X500_NAME issuer;
  char thisUpdate[kTimeTextSize];
  char nextUpdate[kTimeTextSize];  // empty when absent
  USER_revokedCert_INFO* revokedCertificates;
  USER_CRL_EXTN_INFO crlExtensions;
  u8 versionPresent;
  u8 nextUpdatePresent;
  u8 revokedCertificatesPresent;
  u8 crlExtensionsPresent;
};

// ---- internal form -------------------------------------------------------------------

struct CRL_REVOKED_CERT {
  CRL_REVOKED_CERT* next;
  DATA_BUFFER userCertificate;  // serial number content octets
  X509_TIME revocationDate;
  DATA_BUFFER crlEntryExtensions;  // the whole Extensions SEQUENCE
  u8 crlEntryExtensionsPresent;
};

struct CRL_TBS_CERT_LIST {
  u8 version;
  X509_ALG_ID signature;
  X500_NAME* issuer;
  X509_TIME thisUpdate;
  X509_TIME nextUpdate;
  CRL_REVOKED_CERT* revokedCertificates;
  DATA_BUFFER crlExtensions;  // the whole [0] element
  u8 versionPresent;
  u8 nextUpdatePresent;
  u8 revokedCertificatesPresent;
  u8 crlExtensionsPresent;
};

// A time the decoder found where a Time belongs but of neither Time type; the
// conversion to the caller's text refuses it.
inline constexpr u8 kNotATime = 0xFF;

// ---- life cycle (record operations: they keep the error list) --------------------------

// Frees a whole caller list from entry on, without recursion. Null is fine. Always 0.
u32 free_USER_revokedCert_INFO(USER_revokedCert_INFO* entry);
// Allocates one zero-filled entry (func_no 938).
u32 new_USER_revokedCert_INFO(USER_revokedCert_INFO** entry);

u32 new_CRL_REVOKED_CERT(CRL_REVOKED_CERT** entry);  // 939
u32 free_CRL_REVOKED_CERT(CRL_REVOKED_CERT* entry);  // the whole list; always 0
u32 ini_CRL_TBS_CERT_LIST(CRL_TBS_CERT_LIST* tbs);
u32 free_CRL_TBS_CERT_LIST(CRL_TBS_CERT_LIST* tbs);

}  // namespace hylorn
