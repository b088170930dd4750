/*
 * hylorn: public-key certificate toolkit, flat C interface.
 *
 * Every function here is plain C with the default calling convention. Results are
 * unsigned 32-bit status words: 0 for success, 1 for the usual failure, unless the
 * comment says otherwise. After a failed call, Crypt_Get_Err returns the chain of
 * internal failures, innermost first, one line per entry.
 *
 * No output buffer carries a capacity argument: the caller provides the room that the
 * HYLORN_*_SIZE constants below state. A NULL text argument reads as the empty string;
 * a NULL octet pointer is accepted with length 0. An output pointer the call writes may
 * not be NULL.
 *
 * The library keeps a little process-wide state (error list, random generator, BMP
 * table pointer, the CRL under construction) and takes no locks: call it from one
 * thread at a time.
 */
#ifndef HYLORN_H
#define HYLORN_H

#ifdef __cplusplus
extern "C" {
#endif

#if defined(HYLORN_BUILDING_LIBRARY)
#define HYLORN_API __attribute__((visibility("default")))
#else
#define HYLORN_API
#endif

/* Room the caller provides for each kind of output, in bytes. */
#define HYLORN_ERR_TEXT_SIZE 2048          /* Crypt_Get_Err: 16 lines of up to 127 chars */
#define HYLORN_PUBKEY_DER_SIZE 160         /* DER public key (a 1024-bit key needs 140) */
#define HYLORN_PRIKEY_DER_SIZE 700         /* DER private key (a 1024-bit key needs ~610) */
#define HYLORN_RSA_BLOCK_SIZE 128          /* signature, RSA block, decrypted raw block */
#define HYLORN_DIGEST_SIZE 20              /* Crypt_Gen_Hash: 16 (MD2, MD5) or 20 (SHA-1) */
#define HYLORN_ENCODED_HASH_SIZE 35        /* Crypt_Gen_Encoded_Hash: 34 or 35 */
#define HYLORN_SESSION_KEY_SIZE 16         /* symmetric key of Crypt_Enc_Data_S and envelopes */
#define HYLORN_ENVELOPE_KEY_SIZE 128       /* wrapped session key at the head of an envelope */
#define HYLORN_TBS_MAX_SIZE 8192           /* the to-be-signed part of a certificate */
#define HYLORN_CERT_DER_SIZE (8192 + 512)  /* Crypt_Encode_Cert output */
#define HYLORN_CHAIN_SLOT_SIZE 2048        /* one certificate in a chain */
#define HYLORN_CHAIN_SIZE (2 * 2048 + 16)  /* Crypt_Gen_Cert_Chain output */
#define HYLORN_PKCS7_CHAIN_SIZE (2 * 2048 + 16 + 64) /* Crypt_Gen_Ie_Cert_Chain output */
#define HYLORN_NAME_SIZE 256               /* one name slot, NUL included */
#define HYLORN_TIME_SIZE 64                /* a time text, NUL included */
#define HYLORN_SERIAL_SIZE 128             /* serial number, unique identifiers */
#define HYLORN_PARAMS_SIZE 1024            /* algorithm parameters (complete DER element) */
#define HYLORN_POLICY_OID_SIZE 32          /* policy identifier content octets */
#define HYLORN_POLICY_QUALIFIER_SIZE 256   /* policy qualifier text, NUL included */
#define HYLORN_HASHED_ROOT_KEY_SIZE 64     /* SET hashedRootKey octets */
#define HYLORN_SUBJECT_KEY_ID_SIZE 64      /* subject key identifier octets */
#define HYLORN_PUBKEY_SIZE 1024            /* public key octets in a certificate or request */
#define HYLORN_CERT_ITEM_SIZE 1024         /* Crypt_Get_Char_Info_FromCert output, NUL included */
#define HYLORN_PKCS10_DER_SIZE 6144        /* Crypt_Encode_Pkcs10 output (the largest is 5,554) */
#define HYLORN_CHALLENGE_SIZE 1024         /* Netscape challenge, NUL included */
#define HYLORN_BMP_TABLE_ENTRIES 65536     /* two bytes per entry */

/* The sixteen name slots, in slot order: C, O, OU, ST, CN, L, title, SN, GN, initials,
 * email, postalAddress, postalCode, postOfficeBox, telephone, telex. Each is one
 * separate argument. Inputs are texts; outputs are 256-byte buffers. */
#define HYLORN_NAME_IN(p)                                                              \
  const char *p##C, const char *p##O, const char *p##OU, const char *p##ST,           \
      const char *p##CN, const char *p##L, const char *p##Title, const char *p##SN,   \
      const char *p##GN, const char *p##Initials, const char *p##Email,               \
      const char *p##PostalAddress, const char *p##PostalCode,                        \
      const char *p##PostOfficeBox, const char *p##Telephone, const char *p##Telex
#define HYLORN_NAME_OUT(p)                                                             \
  char *p##C, char *p##O, char *p##OU, char *p##ST, char *p##CN, char *p##L,          \
      char *p##Title, char *p##SN, char *p##GN, char *p##Initials, char *p##Email,    \
      char *p##PostalAddress, char *p##PostalCode, char *p##PostOfficeBox,            \
      char *p##Telephone, char *p##Telex

/* ---- Frame, PEM, character codes ------------------------------------------------ */

/* Copies the error list into out (HYLORN_ERR_TEXT_SIZE bytes), one line per entry,
 * innermost failure first, each "func_no = N err_no = N err_msg = text\n". With an
 * empty list out is not written at all, not even a terminator. Always 0. */
HYLORN_API unsigned int Crypt_Get_Err(char *out);

/* Stores the library version: major 1, minor 10. Always 0. */
HYLORN_API unsigned int Crypt_Get_Soft_Version(unsigned int *major, unsigned int *minor);

/* Bracket a caller's use of the library. Nothing needs setting up: always 0, any
 * number of times, in any order. */
HYLORN_API unsigned int Crypt_InitEnvironment(void);
HYLORN_API unsigned int Crypt_ClearEnvironment(void);

/* Wraps DER in base64 lines of 64 characters ending in CR LF, between the caller's
 * header and footer lines (written as given, each followed by CR LF; empty ones are
 * left out). out needs strlen(header) + strlen(footer) + 4 * ceil(derLen / 3)
 * + 2 * ceil(derLen / 48) + 5 bytes; *outLen excludes the terminator. 0 or 1. */
HYLORN_API unsigned int DER2PEM_data_format(const unsigned char *der, unsigned int derLen,
                                            char *out, unsigned int *outLen,
                                            const char *header, const char *footer);

/* Takes PEM text (or bare base64 without any '-') back to DER. der needs
 * 3 * pemLen / 4 bytes at most. 0, or 1: malformed armour or base64 leaves an
 * error-list entry; a negative pemLen is refused with an empty list. */
HYLORN_API unsigned int PEM2DER_data_format(const char *pem, int pemLen, unsigned char *der,
                                            unsigned int *derLen);

/* Loads (or, with NULL, unloads) the caller's BMPString conversion table of
 * HYLORN_BMP_TABLE_ENTRIES two-byte entries; the library keeps only the pointer, which
 * must stay valid while names are decoded. Returns the pointer it was given. */
HYLORN_API const unsigned char *Crypt_GetBMPTable(const unsigned char *table);

/* Decimal text of at most 128 digits to big-endian bytes (out needs 54 bytes).
 * 0, or 1 for a longer text. */
HYLORN_API unsigned int Crypt_Char2Int(const char *in, unsigned char *out, unsigned int *outLen);

/* Big-endian bytes (at most 128) to decimal text (out needs 310 bytes). Zero and
 * inLen 0 give "0". 0, or 1 for more than 128 bytes or a negative inLen. */
HYLORN_API unsigned int Crypt_Int2Char(const unsigned char *in, int inLen, char *out);

/* ---- Digests and random bytes --------------------------------------------------- */

/* Digest of data: alg 1 or 7 MD2, 2 or 5 MD5 (16 bytes), 3 or 6 SHA-1 (20 bytes).
 * 0, or 1 for any other alg (4 included), with nothing written. */
HYLORN_API int Crypt_Gen_Hash(int alg, const unsigned char *data, unsigned int dataLen,
                              unsigned char *digest, unsigned int *digestLen);

/* PKCS #1 DigestInfo of data (34 bytes for MD2 and MD5, 35 for SHA-1); algorithm
 * numbers as Crypt_Gen_Hash. 0, or 1 for an unknown alg. */
HYLORN_API int Crypt_Gen_Encoded_Hash(int alg, const unsigned char *data, unsigned int dataLen,
                                      unsigned char *encoded, unsigned int *encodedLen);

/* Re-seeds the generator and fills out with len bytes when 1 <= len <= 256; other
 * lengths leave out untouched. Always 0. */
HYLORN_API unsigned int Crypt_Gen_RandomBytes(unsigned char *out, unsigned int len);

/* ---- Keys ------------------------------------------------------------------------ */

/* Reads a PKCS #1 RSAPublicKey. bits is a size class (512, 1024 or 2048); modulus and
 * exponent come back right-aligned in 128 bytes each. 0, or -1 when it does not decode. */
HYLORN_API int Crypt_Decode_Pubkey_Info(const unsigned char *der, int derLen, unsigned int *bits,
                                        unsigned char modulus[128], unsigned char exponent[128]);

/* Reads a PKCS #1 RSAPrivateKey into right-aligned fields (bits is always 1024).
 * 0, or -1 when it does not decode. */
HYLORN_API int Crypt_Decode_Prikey_Info(const unsigned char *der, int derLen,
                                        unsigned int *bits, unsigned char modulus[128],
                                        unsigned char publicExponent[128],
                                        unsigned char exponent[128], unsigned char prime1[64],
                                        unsigned char prime2[64],
                                        unsigned char primeExponent1[64],
                                        unsigned char primeExponent2[64],
                                        unsigned char coefficient[64]);

/* Checks that one of the two key encodings decodes; stores nothing. 0 when either
 * decodes or when name is a slot name ("keypair.db1" to "keypair.db5"), else 1. */
HYLORN_API unsigned int Crypt_Restore_Key(const char *name, const unsigned char *pubDer,
                                          int pubDerLen, const unsigned char *priDer,
                                          int priDerLen);

/* Makes a 1024-bit RSA key pair (e = 65537). A slot name returns 0 and writes nothing;
 * "keypair.out" returns both DER keys and writes no file; any other name is a path
 * that receives the DER private key (1 if it cannot be created, outputs written).
 * pubDer needs HYLORN_PUBKEY_DER_SIZE, priDer HYLORN_PRIKEY_DER_SIZE bytes. */
HYLORN_API unsigned int Crypt_GenRSAKeyPair(const char *keyName, unsigned int unused,
                                            unsigned char *pubDer, unsigned int *pubDerLen,
                                            unsigned char *priDer, unsigned int *priDerLen);

/* DER public key belonging to a key file (pubDer needs HYLORN_PUBKEY_DER_SIZE).
 * 0, or 1 for a slot name, a file that cannot be read or does not decode. */
HYLORN_API unsigned int Crypt_GetRSAPublicKey(const char *keyName, unsigned int unused,
                                              unsigned char *pubDer, unsigned int *pubDerLen);

/* ---- Signatures ------------------------------------------------------------------ */

/* PKCS #1 v1.5 signature (sig needs HYLORN_RSA_BLOCK_SIZE) with the key file named by
 * keyName; alg as Crypt_Gen_Hash. secondText is accepted and not used. 0 or 1. */
HYLORN_API unsigned int Crypt_Gen_Signature(int alg, const char *keyName,
                                            const char *secondText, const unsigned char *data,
                                            unsigned int dataLen, unsigned char *sig,
                                            unsigned int *sigLen);

/* The same with a DER private key in memory. 0 or 1. */
HYLORN_API unsigned int Crypt_Gen_Signature_By_Prikey(int alg, const unsigned char *priDer,
                                                      unsigned int priDerLen,
                                                      const unsigned char *data,
                                                      unsigned int dataLen, unsigned char *sig,
                                                      unsigned int *sigLen);

/* Verifies a signature with a DER public key: 0 valid, 1 the RSA operation failed,
 * 2 the digest does not match, 3 unsupported alg. */
HYLORN_API unsigned int Crypt_Ver_Signature(int alg, const unsigned char *pubDer,
                                            unsigned int pubDerLen, const unsigned char *data,
                                            unsigned int dataLen, const unsigned char *sig,
                                            unsigned int sigLen);

/* DER public key of a certificate's subject (pubDer needs HYLORN_PUBKEY_SIZE). 0 or 1. */
HYLORN_API unsigned int Crypt_Get_PubKey_FromCert(const unsigned char *cert,
                                                  unsigned int certLen, unsigned char *pubDer,
                                                  unsigned int *pubDerLen);

/* Crypt_Ver_Signature with the public key of a certificate; 3 when the key cannot be
 * taken from it. */
HYLORN_API unsigned int Crypt_Ver_Signature_ByCert(int alg, const unsigned char *cert,
                                                   unsigned int certLen,
                                                   const unsigned char *data,
                                                   unsigned int dataLen,
                                                   const unsigned char *sig,
                                                   unsigned int sigLen);

/* ---- Encryption: input, input length, output, output length, then the key ------- */

/* Raw RSA, PKCS #1 v1.5 block type 1 (private key) or 2 (public key): at most 117 data
 * bytes for a 1024-bit key; outputs are HYLORN_RSA_BLOCK_SIZE bytes. 0 or 1. */
HYLORN_API unsigned int Crypt_Asyn_Enc_Data_By_Prikey(const unsigned char *in, unsigned int inLen,
                                                      unsigned char *out, unsigned int *outLen,
                                                      const unsigned char *priDer,
                                                      unsigned int priDerLen);
HYLORN_API unsigned int Crypt_Asyn_Dec_Data_By_Pubkey(const unsigned char *in, unsigned int inLen,
                                                      unsigned char *out, unsigned int *outLen,
                                                      const unsigned char *pubDer,
                                                      unsigned int pubDerLen);
HYLORN_API unsigned int Crypt_Asyn_Enc_Data_By_Pubkey(const unsigned char *in, unsigned int inLen,
                                                      unsigned char *out, unsigned int *outLen,
                                                      const unsigned char *pubDer,
                                                      unsigned int pubDerLen);
HYLORN_API unsigned int Crypt_Asyn_Dec_Data_By_Prikey(const unsigned char *in, unsigned int inLen,
                                                      unsigned char *out, unsigned int *outLen,
                                                      const unsigned char *priDer,
                                                      unsigned int priDerLen);

/* Digital envelope for a 1024-bit recipient key: 128 bytes of RSA-wrapped session key,
 * then the data under the block cipher (out needs 128 + inLen + 8 bytes). 0 or 1. */
HYLORN_API unsigned int Crypt_Enc_Data(const unsigned char *in, unsigned int inLen,
                                       unsigned char *out, unsigned int *outLen,
                                       const unsigned char *pubDer, unsigned int pubDerLen);

/* Opens an envelope with the key file named by keyName (out needs inLen - 128 bytes).
 * Envelopes shorter than 129 bytes are refused. 0 or 1. */
HYLORN_API unsigned int Crypt_Dec_Data(const unsigned char *in, unsigned int inLen,
                                       unsigned char *out, unsigned int *outLen,
                                       const char *keyName);

/* Opens an envelope with a DER private key in memory. 0 or 1. */
HYLORN_API unsigned int Crypt_Dec_Data_By_Prikey(const unsigned char *in, unsigned int inLen,
                                                 unsigned char *out, unsigned int *outLen,
                                                 const unsigned char *priDer,
                                                 unsigned int priDerLen);

/* Block cipher with a 16-byte key, ECB with the library's padding: out needs
 * inLen + 8 bytes when encrypting, inLen when decrypting. 0 or 1. */
HYLORN_API unsigned int Crypt_Enc_Data_S(const unsigned char *in, unsigned int inLen,
                                         unsigned char *out, unsigned int *outLen,
                                         const unsigned char key[16]);
HYLORN_API unsigned int Crypt_Dec_Data_S(const unsigned char *in, unsigned int inLen,
                                         unsigned char *out, unsigned int *outLen,
                                         const unsigned char key[16]);

/* ---- Certificates ------------------------------------------------------------------ */

/* Issues a signed X.509 certificate (94 arguments); out needs HYLORN_CERT_DER_SIZE.
 * Times are YYYYMMDDHHMMSS texts. 0 or 1. */
HYLORN_API unsigned int Crypt_Encode_Cert(
    unsigned char version, const unsigned char *serial, unsigned short serialLen,
    unsigned short sigAlg, const unsigned char *params, int paramsLen, HYLORN_NAME_IN(issuer),
    const char *notBefore, const char *notAfter, HYLORN_NAME_IN(subject),
    const unsigned char *pubKey, unsigned short pubKeyLen, const unsigned char *issuerUID,
    unsigned int issuerUIDLen, const unsigned char *subjectUID, unsigned int subjectUIDLen,
    unsigned int extFlags, unsigned int critFlags, HYLORN_NAME_IN(akiIssuer),
    const unsigned char *akiSerial, int akiSerialLen, const unsigned char *policyOid1,
    int policyOid1Len, const char *policyQualifier1, const unsigned char *policyOid2,
    int policyOid2Len, const char *policyQualifier2, const unsigned char *policyOid3,
    int policyOid3Len, const char *policyQualifier3, const unsigned char *policyOid4,
    int policyOid4Len, const char *policyQualifier4, const char *pkupNotBefore,
    const char *pkupNotAfter, unsigned char cA, int pathLen, unsigned int keyUsage,
    unsigned int nsCertType, unsigned int setCertType, const unsigned char *hashedRootKey,
    unsigned int hashedRootKeyLen, unsigned int ignored87, const unsigned char *ignored88,
    unsigned int ignored89, const char *keyName, const char *secondText, unsigned char *out,
    unsigned int *outLen);

/* Reads a certificate without verifying it (94 arguments). Name slots and time texts
 * are 256- and 64-byte buffers; other sizes as the HYLORN_*_SIZE constants. 0 or 1. */
HYLORN_API unsigned int Crypt_Decode_Cert(
    const unsigned char *der, unsigned int derLen, unsigned int *version,
    unsigned char *serial, unsigned int *serialLen, unsigned int *sigAlg,
    unsigned char *params, unsigned int *paramsLen, HYLORN_NAME_OUT(issuer), char *notBefore,
    char *notAfter, HYLORN_NAME_OUT(subject), unsigned char *pubKey, unsigned int *pubKeyLen,
    unsigned char *issuerUID, unsigned int *issuerUIDLen, unsigned char *subjectUID,
    unsigned int *subjectUIDLen, unsigned char *signature, unsigned int *signatureLen,
    unsigned int *extFlags, unsigned int *critFlags, HYLORN_NAME_OUT(akiIssuer),
    unsigned char *akiSerial, unsigned int *akiSerialLen, unsigned char *policyOid1,
    unsigned int *policyOid1Len, char *policyQualifier1, unsigned char *policyOid2,
    unsigned int *policyOid2Len, char *policyQualifier2, unsigned char *policyOid3,
    unsigned int *policyOid3Len, char *policyQualifier3, unsigned char *policyOid4,
    unsigned int *policyOid4Len, char *policyQualifier4, char *pkupNotBefore,
    char *pkupNotAfter, unsigned char *cA, int *pathLen, unsigned int *keyUsage,
    unsigned int *nsCertType, unsigned int *setCertType, unsigned char *hashedRootKey,
    unsigned int *hashedRootKeyLen, unsigned int *policyCount, unsigned char *subjectKeyId,
    unsigned int *subjectKeyIdLen);

/* One item (1 to 21) of a certificate as text, or item 20 as DER public key octets.
 * out needs HYLORN_CERT_ITEM_SIZE bytes. 0 success, 1 the certificate does not decode,
 * -1 a bad item number or an item that does not fit (item 21 of a very long name). */
HYLORN_API int Crypt_Get_Char_Info_FromCert(const unsigned char *cert, unsigned int certLen,
                                            unsigned int item, unsigned char *out,
                                            unsigned int *outLen);

/* Checks a certificate's signature with the key of its issuer's certificate (signature
 * only: no dates, names or constraints). 0 valid, 1 otherwise. */
HYLORN_API unsigned int Crypt_Ver_Cert_ByRootCert(const unsigned char *cert, unsigned int certLen,
                                                  const unsigned char *rootCert,
                                                  unsigned int rootCertLen);

/* Joins two certificates into a DER SET (out needs HYLORN_CHAIN_SIZE). 0 or 1. */
HYLORN_API unsigned int Crypt_Gen_Cert_Chain(const unsigned char *cert1, unsigned int cert1Len,
                                             const unsigned char *cert2, unsigned int cert2Len,
                                             unsigned char *out, unsigned int *outLen);

/* Wraps a chain in a certificates-only PKCS #7 SignedData (out needs
 * HYLORN_PKCS7_CHAIN_SIZE). 0 or 1. */
HYLORN_API unsigned int Crypt_Gen_Ie_Cert_Chain(const unsigned char *chain, unsigned int chainLen,
                                                unsigned char *out, unsigned int *outLen);

/* ---- CRLs: one CRL under construction per process ------------------------------- */

/* Starts a CRL: version, signature algorithm, issuer name and update times. 0 or 1. */
HYLORN_API unsigned int Crypt_Encode_Crl_Init(unsigned char version, unsigned short sigAlg,
                                              const unsigned char *params,
                                              unsigned int paramsLen, HYLORN_NAME_IN(issuer),
                                              const char *thisUpdate, const char *nextUpdate);

/* Adds one revoked certificate to the CRL under construction. 0 or 1. */
HYLORN_API unsigned int Crypt_Encode_Crl_Update(const unsigned char *serial,
                                                unsigned int serialLen,
                                                const char *revocationDate,
                                                unsigned int extFlags, unsigned int critFlags,
                                                unsigned int reasonCode,
                                                const char *invalidityDate);

/* Adds the CRL extensions, signs with keyName and writes the DER. 0 or 1. */
HYLORN_API unsigned int Crypt_Encode_Crl_Final(unsigned int extFlags, unsigned int critFlags,
                                               HYLORN_NAME_IN(akiIssuer),
                                               const unsigned char *akiSerial, int akiSerialLen,
                                               const unsigned char *crlNumber,
                                               unsigned int crlNumberLen, const char *keyName,
                                               const char *secondText, unsigned char *out,
                                               unsigned int *outLen);

/* Opens a CRL for reading; *handle walks its entries. 0 or 1. */
HYLORN_API unsigned int Crypt_Decode_Crl_Init(void **handle, const unsigned char *der,
                                              unsigned int derLen, unsigned int *version,
                                              unsigned int *sigAlg, unsigned char *params,
                                              unsigned int *paramsLen, HYLORN_NAME_OUT(issuer),
                                              char *thisUpdate, char *nextUpdate);

/* Reads the next revoked entry. 0 or 1. */
HYLORN_API unsigned int Crypt_Decode_Crl_Update(void *handle, unsigned char *serial,
                                                unsigned int *serialLen, char *revocationDate,
                                                unsigned int *extFlags, unsigned int *critFlags,
                                                unsigned int *reasonCode, char *invalidityDate);

/* Reads the CRL extensions and releases the handle. 0 or 1. */
HYLORN_API unsigned int Crypt_Decode_Crl_Final(void *handle, unsigned int *extFlags,
                                               unsigned int *critFlags,
                                               HYLORN_NAME_OUT(akiIssuer),
                                               unsigned char *akiSerial,
                                               unsigned int *akiSerialLen,
                                               unsigned char *crlNumber,
                                               unsigned int *crlNumberLen);

/* ---- Requests ------------------------------------------------------------------------ */

/* Makes a signed PKCS #10 request (MD5 with RSA); out needs HYLORN_PKCS10_DER_SIZE.
 * 0 or 1. */
HYLORN_API unsigned int Crypt_Encode_Pkcs10(unsigned char version, HYLORN_NAME_IN(subject),
                                            const unsigned char *pubKey, unsigned int pubKeyLen,
                                            const char *keyName, const char *secondText,
                                            unsigned char *out, unsigned int *outLen);

/* Reads a PKCS #10 request's version, subject and public key. 0 or 1. */
HYLORN_API unsigned int Crypt_Decode_Pkcs10(const unsigned char *der, unsigned int derLen,
                                            unsigned int *version, HYLORN_NAME_OUT(subject),
                                            unsigned char *pubKey, unsigned int *pubKeyLen);

/* Reads a Netscape SPKAC request's public key and challenge. 0 or 1. */
HYLORN_API unsigned int Crypt_Decode_NetscapeCertReq(const unsigned char *der,
                                                     unsigned int derLen,
                                                     unsigned char *pubKey,
                                                     unsigned int *pubKeyLen, char *challenge);

#ifdef __cplusplus
}
#endif

#endif /* HYLORN_H */
