// The supported extensions: one table row each (number, identifier, coders), walked in
// the order of CERT_EXTN_INFO's presence flags to build the extension list from the
// caller's record and to read it back.
#pragma once

#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/extn_list.h"
#include "x509/records.h"

namespace hylorn {

// Caller extension numbers of the entries other layers name.
inline constexpr u32 kExtAuthorityKeyIdentifier = 1;
inline constexpr u32 kExtSubjectKeyIdentifier = 2;
inline constexpr u32 kExtKeyUsage = 3;
inline constexpr u32 kExtPrivateKeyUsagePeriod = 4;
inline constexpr u32 kExtCertificatePolicies = 5;
inline constexpr u32 kExtBasicConstraints = 10;
inline constexpr u32 kExtExtKeyUsage = 14;
inline constexpr u32 kExtCrlNumber = 15;
inline constexpr u32 kExtReasonCode = 19;
inline constexpr u32 kExtInvalidityDate = 21;
inline constexpr u32 kExtNetscapeCertType = 40;
inline constexpr u32 kExtSetHashedRootKey = 60;
inline constexpr u32 kExtSetCertType = 61;

// Every present extension of info, in flag order, into the [3] element (entries under
// 313). No present extension fails with "no extension".
u32 u2l_CERT_EXTN_INFO(const CERT_EXTN_INFO* info, DATA_BUFFER* extensions);
// The [3] element into info: each supported extension's presence flag and record; the
// first occurrence counts, unknown extensions are skipped (523).
u32 l2u_extensions(const DATA_BUFFER* extensions, CERT_EXTN_INFO* info);

// AuthorityKeyIdentifier alone, for the CRL layer: appends a node to ctx and encodes the
// record into it; reads the first one of ctx into the record, *present 1 when found.
//
//   AuthorityKeyIdentifier ::= SEQUENCE {
//      keyIdentifier             [0] KeyIdentifier           OPTIONAL,
//      authorityCertIssuer       [1] GeneralNames            OPTIONAL,
//      authorityCertSerialNumber [2] CertificateSerialNumber OPTIONAL }
u32 u2l_XEXT_AuthorityKeyIdentifier(const USER_XEXT_AuthorityKeyIdentifier* user,
                                    X509_EXTN_CONTEXT* ctx);
u32 l2u_XEXT_AuthorityKeyIdentifier(X509_EXTN_CONTEXT* ctx,
                                    USER_XEXT_AuthorityKeyIdentifier* user, u32* present);

}  // namespace hylorn
