// Times and validity: the DER coders, and the conversions between the caller's
// YYYYMMDDHHMMSS texts and the DER texts. Years from 2050 on are written as
// GeneralizedTime, earlier ones as UTCTime; a UTCTime year of 50 or below reads back as
// 20YY, above 50 as 19YY (so the two directions disagree about 2050 on purpose).
//
//   Time ::= CHOICE { utcTime UTCTime, generalTime GeneralizedTime }
//   Validity ::= SEQUENCE { notBefore Time, notAfter Time }
#pragma once

#include "frame/buffer.h"
#include "frame/types.h"
#include "x509/records.h"

namespace hylorn {

// Type 0 as UTCTime, 1 as GeneralizedTime (func_no 224 / 225). The decoder refuses text
// longer than the record holds.
u32 Der_Encode_X509_TIME(const X509_TIME* time, DATA_BUFFER* out);
u32 Der_Decode_X509_TIME(u32 total, const u8* der, X509_TIME* time);

u32 Der_Encode_Validity(const X509_VALIDITY* validity, DATA_BUFFER* out);  // 209
u32 Der_Decode_Validity(u32 total, const u8* der, X509_VALIDITY* validity);  // 210

// One caller text to a DER time by the 2050 rule. Reads at most 14 characters and stops
// at the NUL; does not check the digits. Never fails.
u32 u2l_X509_TIME(const char* text, X509_TIME* time);
// One DER time to a 15-byte caller text (four-digit year, no zone letter). 1 for a type
// other than 0 and 1 (no entry: the callers report it).
u32 l2u_X509_TIME(const X509_TIME* time, char text[kTimeTextSize]);

u32 u2l_X509_VALIDITY(const char* notBefore, const char* notAfter, X509_VALIDITY* validity);
u32 l2u_X509_VALIDITY(X509_VALIDITY validity, char notBefore[kTimeTextSize],
                      char notAfter[kTimeTextSize]);  // 308

}  // namespace hylorn
