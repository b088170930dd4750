#include "keys/key_name.h"

#include <cstdio>
#include <cstring>

#include "frame/guard.h"
#include "frame/wipe.h"
#include "keys/key_der.h"

namespace hylorn {
namespace {

constexpr const char* kSlotNames[KEY_SLOT_COUNT] = {"keypair.db1", "keypair.db2", "keypair.db3",
                                                    "keypair.db4", "keypair.db5"};

}  // namespace

int key_slot_number(const char* name) {
  if (name == nullptr) return 0;
  int slot = 0;
  for (u32 i = 0; i < KEY_SLOT_COUNT; ++i) {
    if (std::strcmp(name, kSlotNames[i]) == 0) slot = static_cast<int>(i + 1);
  }
  return slot;
}

u32 load_private_key(const char* name, int* slot, RSA_PRIVATE_KEY* key) {
  std::memset(key, 0, sizeof *key);
  *slot = key_slot_number(name);
  if (*slot != 0) return 0;
  std::FILE* file = std::fopen(name != nullptr ? name : "", "rb");
  if (file == nullptr) return 1;
  u8 der[KEY_FILE_READ_MAX];
  auto wipe = on_exit([&] { secure_wipe_object(der); });
  const std::size_t got = std::fread(der, 1, sizeof der, file);
  std::fclose(file);
  return d2c_RSA_PRIVATE_KEY(der, static_cast<u32>(got), key);
}

u32 store_slot_keys(int, const RSA_PUBLIC_KEY*, const RSA_PRIVATE_KEY*) { return 0; }

u32 slot_public_key(int, RSA_PUBLIC_KEY*) { return 1; }

}  // namespace hylorn
