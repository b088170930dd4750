#include "x509/tbs_cert.h"

#include <cstdlib>
#include <cstring>

#include "frame/error.h"

namespace hylorn {
namespace {

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

u32 check_version(int func_no, u8 version, u8* out) {
  ErrorScope err(func_no);
  if (version > kLastVersion) return err.fail(1, "version error");
  *out = version;
  return 0;
}

}  // namespace

u32 u2l_version(u8 version, u8* out) {
  return check_version(kFnUserToVersion, version, out);
}

u32 l2u_version(u8 version, u8* out) {
  return check_version(kFnVersionToUser, version, out);
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

}  // namespace hylorn
