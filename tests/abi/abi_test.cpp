// The dynamic symbol table and the SONAME of the built libhylorn.so, as binutils read
// them, against the public interface.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

// clang-format off
const std::set<std::string> kPublicNames = {
    "Crypt_Get_Err", "Crypt_Get_Soft_Version", "Crypt_InitEnvironment", "Crypt_ClearEnvironment",
    "DER2PEM_data_format", "PEM2DER_data_format", "Crypt_GetBMPTable", "Crypt_Char2Int",
    "Crypt_Int2Char", "Crypt_Gen_Hash", "Crypt_Gen_Encoded_Hash", "Crypt_Gen_RandomBytes",
    "Crypt_Decode_Pubkey_Info", "Crypt_Decode_Prikey_Info", "Crypt_Restore_Key",
    "Crypt_GenRSAKeyPair", "Crypt_GetRSAPublicKey", "Crypt_Gen_Signature",
    "Crypt_Gen_Signature_By_Prikey", "Crypt_Ver_Signature", "Crypt_Get_PubKey_FromCert",
    "Crypt_Ver_Signature_ByCert", "Crypt_Asyn_Enc_Data_By_Prikey", "Crypt_Asyn_Dec_Data_By_Pubkey",
    "Crypt_Asyn_Enc_Data_By_Pubkey", "Crypt_Asyn_Dec_Data_By_Prikey", "Crypt_Enc_Data",
    "Crypt_Dec_Data", "Crypt_Dec_Data_By_Prikey", "Crypt_Enc_Data_S", "Crypt_Dec_Data_S",
    "Crypt_Encode_Cert", "Crypt_Decode_Cert", "Crypt_Get_Char_Info_FromCert",
    "Crypt_Ver_Cert_ByRootCert", "Crypt_Gen_Cert_Chain", "Crypt_Gen_Ie_Cert_Chain",
    "Crypt_Encode_Crl_Init", "Crypt_Encode_Crl_Update", "Crypt_Encode_Crl_Final",
    "Crypt_Decode_Crl_Init", "Crypt_Decode_Crl_Update", "Crypt_Decode_Crl_Final",
    "Crypt_Encode_Pkcs10", "Crypt_Decode_Pkcs10", "Crypt_Decode_NetscapeCertReq",
};
// clang-format on

// What a command writes to its standard output.
std::string output_of(const std::string& command) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  char buf[4096];
  for (std::size_t n; pipe != nullptr && (n = fread(buf, 1, sizeof buf, pipe)) > 0;)
    out.append(buf, n);
  if (pipe != nullptr) pclose(pipe);
  return out;
}

TEST(SharedLibrary, ExportsExactlyThePublicNamesUnderItsSoname) {
  ASSERT_EQ(kPublicNames.size(), 46u);
  std::set<std::string> exported;
  std::istringstream lines(output_of("nm -D --defined-only " HYLORN_SO_PATH));
  for (std::string address, type, name; lines >> address >> type >> name;) exported.insert(name);
  EXPECT_EQ(exported, kPublicNames);
  std::istringstream dynamic(output_of("objdump -p " HYLORN_SO_PATH));
  std::string word, soname;
  while (dynamic >> word)
    if (word == "SONAME") dynamic >> soname;
  EXPECT_EQ(soname, "libhylorn.so.1");
}

}  // namespace
