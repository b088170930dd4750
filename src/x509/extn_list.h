// The extension list: one node per Extension, the contexts that build and read it, and
// the look-up by the caller's extension number. Certificates keep the list under [3],
// CRLs under [0], and a revoked CRL entry as a bare SEQUENCE; one coder serves all three.
//
//   Extensions ::= SEQUENCE SIZE (1..MAX) OF Extension
//   Extension  ::= SEQUENCE { extnID    OBJECT IDENTIFIER,
//                             critical  BOOLEAN DEFAULT FALSE,
//                             extnValue OCTET STRING }
#pragma once

#include "asn1/oid.h"
#include "frame/buffer.h"
#include "frame/types.h"

namespace hylorn {

struct X509_EXTN {
  X509_EXTN* next;
  ASN1_OBJECT_ID extnID;  // oidValue 0 for an identifier the table does not know
  u8 critical;
  DATA_BUFFER extnValue;  // contents of the extnValue OCTET STRING
};

// Used to build a list (nodes appended at the tail) and to read one (cursor = the node
// most recently made or found).
struct X509_EXTN_CONTEXT {
  X509_EXTN* head;
  X509_EXTN* tail;
  X509_EXTN* cursor;
  u32 started;  // 0 until the first node exists
};

inline constexpr u8 kCertExtensionsTag = 3;    // [3] EXPLICIT in a TBSCertificate
inline constexpr u8 kCrlExtensionsTag = 0;     // [0] EXPLICIT in a TBSCertList
inline constexpr u8 kBareExtensions = 0xFF;    // no tag: a revoked entry's extensions

u32 new_X509_EXTN(X509_EXTN** node);  // 524
// Frees the list from node on; 1 if a member could not be freed.
u32 free_X509_EXTN(X509_EXTN* list);

// Appends a node: head = tail = cursor for the first, else linked after the tail (504).
u32 Create_One_New_X509_EXTN(X509_EXTN_CONTEXT* ctx);

u32 Der_Encode_X509_Extn(const X509_EXTN* node, DATA_BUFFER* out);  // 501
u32 Der_Decode_X509_Extn(u32 total, const u8* der, X509_EXTN* node);  // 502

// Empties the context.
u32 Cert_Encode_X509_Extensions_Begin(X509_EXTN_CONTEXT* ctx);
// Encodes the list (refusing an empty one), wraps it in [tag] unless kBareExtensions,
// and frees the list (518).
u32 Cert_Encode_X509_Extensions_End(X509_EXTN_CONTEXT* ctx, DATA_BUFFER* out,
                                    u8 tag = kCertExtensionsTag);
// Reads the element into the context's list; unknown identifiers are kept (519).
u32 Cert_Decode_X509_Extensions_Begin(u32 total, const u8* der, X509_EXTN_CONTEXT* ctx,
                                      u8 tag = kCertExtensionsTag);
// Frees the context's list (503).
u32 Cert_Decode_X509_Extensions_End(X509_EXTN_CONTEXT* ctx);

// Extension numbers of the caller (1 authorityKeyIdentifier ... 61 SET certificateType).
// Sets the cursor to the first node of that number: 0 found, 1 none (520: "Uid error"
// for a number without an identifier, and no entry when it is simply absent).
u32 Find_X509_EXTN_By_Number(X509_EXTN_CONTEXT* ctx, u32 number);

}  // namespace hylorn
