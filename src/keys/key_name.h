// Key names: how the signing and decrypting services find a private key.
//
// A key name is one of the five slot names "keypair.db1" to "keypair.db5" (exact,
// case-sensitive) or else the path of a key file: the DER private key, nothing before or
// after it, stored in the clear. No key store stands behind the slots: a slot name loads
// no key, and the private-key operations then run on an all-zero record, which fails
// cleanly and always the same way.
#pragma once

#include "crypto/rsa_keys.h"
#include "frame/types.h"

namespace hylorn {

inline constexpr u32 KEY_SLOT_COUNT = 5;
// Readers take at most this many bytes of a key file, in one read.
inline constexpr u32 KEY_FILE_READ_MAX = 2048;
// The name that tells key generation to return the pair and write no file.
inline constexpr const char* KEY_NAME_NO_FILE = "keypair.out";

// 1 to 5 for a slot name, 0 for anything else (null included).
int key_slot_number(const char* name);

// Resolves a key name for a private-key operation: a slot name sets *slot and leaves
// *key all zero without touching the file system; any other name (null reads as "") is
// opened with "rb", read once up to KEY_FILE_READ_MAX bytes, closed, and decoded into
// *key with *slot = 0. 0, or 1 when the file cannot be opened or does not decode (*key
// is then all zero).
u32 load_private_key(const char* name, int* slot, RSA_PRIVATE_KEY* key);

// The key store behind the slot numbers. It keeps nothing: storing succeeds and does
// nothing, and a slot's public key is never available (1).
u32 store_slot_keys(int slot, const RSA_PUBLIC_KEY* pub, const RSA_PRIVATE_KEY* pri);
u32 slot_public_key(int slot, RSA_PUBLIC_KEY* pub);

}  // namespace hylorn
