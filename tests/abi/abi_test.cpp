// Reads the dynamic symbol table of the built libhylorn.so straight from its ELF image
// and compares the defined global names with the public interface.
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

const std::set<std::string> kPublicNames = {
    "Crypt_Get_Err", "Crypt_Get_Soft_Version", "Crypt_InitEnvironment",
    "Crypt_ClearEnvironment", "DER2PEM_data_format", "PEM2DER_data_format",
    "Crypt_GetBMPTable", "Crypt_Char2Int", "Crypt_Int2Char",
    "Crypt_Gen_Hash", "Crypt_Gen_Encoded_Hash", "Crypt_Gen_RandomBytes",
    "Crypt_Decode_Pubkey_Info", "Crypt_Decode_Prikey_Info", "Crypt_Restore_Key",
    "Crypt_GenRSAKeyPair", "Crypt_GetRSAPublicKey",
    "Crypt_Gen_Signature", "Crypt_Gen_Signature_By_Prikey", "Crypt_Ver_Signature",
    "Crypt_Get_PubKey_FromCert", "Crypt_Ver_Signature_ByCert",
    "Crypt_Asyn_Enc_Data_By_Prikey", "Crypt_Asyn_Dec_Data_By_Pubkey",
    "Crypt_Asyn_Enc_Data_By_Pubkey", "Crypt_Asyn_Dec_Data_By_Prikey",
    "Crypt_Enc_Data", "Crypt_Dec_Data", "Crypt_Dec_Data_By_Prikey",
    "Crypt_Enc_Data_S", "Crypt_Dec_Data_S",
    "Crypt_Encode_Cert", "Crypt_Decode_Cert", "Crypt_Get_Char_Info_FromCert",
    "Crypt_Ver_Cert_ByRootCert", "Crypt_Gen_Cert_Chain", "Crypt_Gen_Ie_Cert_Chain",
    "Crypt_Encode_Crl_Init", "Crypt_Encode_Crl_Update", "Crypt_Encode_Crl_Final",
    "Crypt_Decode_Crl_Init", "Crypt_Decode_Crl_Update", "Crypt_Decode_Crl_Final",
    "Crypt_Encode_Pkcs10", "Crypt_Decode_Pkcs10", "Crypt_Decode_NetscapeCertReq",
};

struct DynamicInfo {
  std::set<std::string> defined;  // global or weak symbols defined in the library
  std::string soname;
};

std::vector<char> read_file(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

template <class T>
const T* at(const std::vector<char>& image, std::size_t offset, std::size_t count = 1) {
  if (offset > image.size() || count * sizeof(T) > image.size() - offset) return nullptr;
  return reinterpret_cast<const T*>(image.data() + offset);
}

std::string c_string(const std::vector<char>& image, std::size_t offset) {
  if (offset >= image.size()) return {};
  return std::string(image.data() + offset, strnlen(image.data() + offset, image.size() - offset));
}

DynamicInfo read_dynamic_info(const std::vector<char>& image) {
  DynamicInfo info;
  const auto* eh = at<Elf64_Ehdr>(image, 0);
  if (eh == nullptr || std::memcmp(eh->e_ident, ELFMAG, SELFMAG) != 0) return info;
  const auto* sh = at<Elf64_Shdr>(image, eh->e_shoff, eh->e_shnum);
  if (sh == nullptr) return info;
  for (int i = 0; i < eh->e_shnum; ++i) {
    if (sh[i].sh_link >= eh->e_shnum) continue;
    const Elf64_Shdr& strtab = sh[sh[i].sh_link];
    if (sh[i].sh_type == SHT_DYNSYM) {
      std::size_t n = sh[i].sh_size / sizeof(Elf64_Sym);
      const auto* syms = at<Elf64_Sym>(image, sh[i].sh_offset, n);
      for (std::size_t k = 0; syms != nullptr && k < n; ++k) {
        int bind = ELF64_ST_BIND(syms[k].st_info);
        if (syms[k].st_shndx == SHN_UNDEF || (bind != STB_GLOBAL && bind != STB_WEAK)) continue;
        info.defined.insert(c_string(image, strtab.sh_offset + syms[k].st_name));
      }
    } else if (sh[i].sh_type == SHT_DYNAMIC) {
      std::size_t n = sh[i].sh_size / sizeof(Elf64_Dyn);
      const auto* dyn = at<Elf64_Dyn>(image, sh[i].sh_offset, n);
      for (std::size_t k = 0; dyn != nullptr && k < n; ++k) {
        if (dyn[k].d_tag == DT_SONAME) info.soname = c_string(image, strtab.sh_offset + dyn[k].d_un.d_val);
      }
    }
  }
  return info;
}

}  // namespace

TEST(SharedLibrary, ExportsExactlyThePublicNames) {
  ASSERT_EQ(kPublicNames.size(), 46u);
  auto image = read_file(HYLORN_SO_PATH);
  ASSERT_FALSE(image.empty()) << HYLORN_SO_PATH;
  DynamicInfo info = read_dynamic_info(image);

  std::vector<std::string> extra, missing;
  std::set_difference(info.defined.begin(), info.defined.end(), kPublicNames.begin(),
                      kPublicNames.end(), std::back_inserter(extra));
  std::set_difference(kPublicNames.begin(), kPublicNames.end(), info.defined.begin(),
                      info.defined.end(), std::back_inserter(missing));
  EXPECT_TRUE(extra.empty()) << "exported beyond the interface: " << ::testing::PrintToString(extra);
  EXPECT_TRUE(missing.empty()) << "not exported: " << ::testing::PrintToString(missing);
}

TEST(SharedLibrary, CarriesItsSoname) {
  DynamicInfo info = read_dynamic_info(read_file(HYLORN_SO_PATH));
  EXPECT_EQ(info.soname, "libhylorn.so.1");
}
