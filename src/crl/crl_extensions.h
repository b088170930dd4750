// The extensions of a CRL and of its entries, on the certificate layer's extension list:
// the entries' set is a bare Extensions SEQUENCE, the CRL's is under [0].
//
//   CRLReason ::= ENUMERATED { unspecified (0), keyCompromise (1), ... }  -- 2.5.29.21
//   InvalidityDate ::= GeneralizedTime                                   -- 2.5.29.24
//   CRLNumber ::= INTEGER (0..MAX)                                        -- 2.5.29.20
//   AuthorityKeyIdentifier: as in a certificate                           -- 2.5.29.35
#pragma once

#include "crl/records.h"
#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/extn_list.h"

namespace hylorn {

// ENUMERATED (tag 0A) of a non-negative value: minimal two's-complement contents
// (911 / 912). The decoder refuses negative values and values beyond 32 bits.
u32 ASN1_Encode_Enumerated(u32 value, DATA_BUFFER* out);
u32 ASN1_Decode_Enumerated(u32 total, const u8* der, u32* value);

// Each Encode_ fills the node made last (identifier, critical flag, value DER); each
// Decode_ reads one node's value.
u32 Encode_XEXT_CRLReason(X509_EXTN* node, u32 reason, u32 critical);          // 913
u32 Decode_XEXT_CRLReason(const X509_EXTN* node, u32* reason, u32* critical);  // 914
// Always a GeneralizedTime of the 14 digits, whatever the year (915 / 916).
u32 Encode_XEXT_InvalidityDate(X509_EXTN* node, const char* text, u32 critical);
u32 Decode_XEXT_InvalidityDate(const X509_EXTN* node, char text[kTimeTextSize], u32* critical);
// An INTEGER of the given content octets (917); the decoder refuses more than 128 (918).
u32 Encode_XEXT_CRLNumber(X509_EXTN* node, const u8* number, u32 length, u32 critical);
u32 Decode_XEXT_CRLNumber(const X509_EXTN* node, u8 number[kCrlNumberSize], u32* length,
                          u32* critical);

// An entry's reason and invalidity date into a bare Extensions SEQUENCE, and back; the
// decoder sets the present flags from what it finds (920 / 921).
u32 u2l_CRL_ENTRY_EXTENSIONS(const USER_revokedCert_INFO* user, DATA_BUFFER* out);
u32 l2u_CRL_ENTRY_EXTENSIONS(const DATA_BUFFER* der, USER_revokedCert_INFO* user);

// AuthorityKeyIdentifier and CRLNumber into the [0] element, and back (922 / 923).
u32 u2l_CRL_EXTENSIONS(const USER_CRL_EXTN_INFO* user, DATA_BUFFER* out);
u32 l2u_CRL_EXTENSIONS(const DATA_BUFFER* der, USER_CRL_EXTN_INFO* user);

}  // namespace hylorn
