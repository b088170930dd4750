// Distinguished names: our DER against OpenSSL's, OpenSSL's names read back, the caller
// slots in both directions, and the entries of the names that do not decode.
#include "x509/name.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

#include "field_fixtures.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/fail_malloc.h"
#include "support/hex.h"

namespace {

using namespace hylorn_test;
using namespace x509_test;
using hylorn::USER_X500_NAME;
using hylorn::X500_NAME;

// Our DER of a caller name (through the list).
Bytes name_der(const USER_X500_NAME& user) {
  X500_NAME* list = nullptr;
  EXPECT_EQ(hylorn::u2l_X500_NAME(&user, &list), 0u);
  Bytes der =
      encoded([&](hylorn::DATA_BUFFER* o) { return hylorn::Der_Encode_X500_Name(list, o); });
  hylorn::free_X500_NAME(list);
  return der;
}

// The caller slots of a DER name; 1 from the decoder gives all slots "?".
USER_X500_NAME name_slots(const Bytes& der) {
  USER_X500_NAME user{};
  X500_NAME* list = nullptr;
  if (hylorn::Der_Decode_X500_Name(static_cast<hylorn::u32>(der.size()), der.data(), &list) != 0) {
    for (char* slot : user.slot) slot[0] = '?';
    return user;
  }
  EXPECT_EQ(hylorn::l2u_X500_NAME(list, &user), 0u);
  hylorn::free_X500_NAME(list);
  return user;
}

// Slot -> OpenSSL's name of its attribute, in slot order.
const char* const kSlotOids[16] = {"C",
                                   "O",
                                   "OU",
                                   "ST",
                                   "CN",
                                   "L",
                                   "title",
                                   "SN",
                                   "GN",
                                   "initials",
                                   "emailAddress",
                                   "postalAddress",
                                   "postalCode",
                                   "postOfficeBox",
                                   "telephoneNumber",
                                   "telexNumber"};

// Guards the slot table, the visiting order (postOfficeBox after telexNumber) and the
// string tags (IA5String only for emailAddress): every slot filled, against OpenSSL.
TEST(NameEncode, AllSlotsMatchOpenSsl) {
  std::vector<std::pair<int, std::string>> slots;
  std::vector<OsslAttribute> expected;
  for (int visit : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 13}) {
    const std::string value = "v" + std::to_string(visit);
    slots.emplace_back(visit, value);
    expected.push_back(
        {kSlotOids[visit], visit == 10 ? V_ASN1_IA5STRING : V_ASN1_PRINTABLESTRING, value});
  }
  EXPECT_EQ(to_hex(name_der(user_name(slots))), to_hex(openssl_name(expected)));
  // Only postOfficeBox and telexNumber: telexNumber is still written first.
  EXPECT_EQ(to_hex(name_der(user_name({{13, "box"}, {15, "telex"}}))),
            to_hex(openssl_name({{"telexNumber", V_ASN1_PRINTABLESTRING, "telex"},
                                 {"postOfficeBox", V_ASN1_PRINTABLESTRING, "box"}})));
  EXPECT_EQ(to_hex(name_der(user_name({}))), "3000");
}

// Guards the decoder's string types and the slot each attribute lands in.
TEST(NameDecode, OpenSslNamesFillTheirSlots) {
  const Bytes der = openssl_name({{"CN", V_ASN1_T61STRING, "teletex"},
                                  {"C", V_ASN1_PRINTABLESTRING, "CN"},
                                  {"emailAddress", V_ASN1_IA5STRING, "a@b.c"},
                                  {"postOfficeBox", V_ASN1_PRINTABLESTRING, "PO 7"},
                                  {"O", V_ASN1_IA5STRING, "org"}});
  const USER_X500_NAME user = name_slots(der);
  const std::vector<std::string> expected = {"CN", "org", "",      "", "teletex", "",     "", "",
                                             "",   "",    "a@b.c", "", "",        "PO 7", "", ""};
  for (int i = 0; i < 16; ++i) EXPECT_EQ(user.slot[i], expected[i]) << "slot " << i;
}

// Guards the last-occurrence rule, the silent drop at 256 characters (255 still fits),
// the round trip of an empty name and the BMPString path through the loaded table.
TEST(NameDecode, SlotEdgeCases) {
  const std::string long255(255, 'x'), long256(256, 'y');
  const USER_X500_NAME user = name_slots(openssl_name({{"CN", V_ASN1_PRINTABLESTRING, "first"},
                                                       {"CN", V_ASN1_PRINTABLESTRING, "second"},
                                                       {"O", V_ASN1_PRINTABLESTRING, long255},
                                                       {"OU", V_ASN1_PRINTABLESTRING, long256}}));
  EXPECT_STREQ(user.slot[4], "second");
  EXPECT_EQ(user.slot[1], long255);
  EXPECT_STREQ(user.slot[2], "");

  const USER_X500_NAME empty = name_slots(from_hex("30 00"));
  for (const char* slot : empty.slot) EXPECT_STREQ(slot, "");

  static const std::vector<unsigned char> table(2 * HYLORN_BMP_TABLE_ENTRIES, 0x20);
  Crypt_GetBMPTable(table.data());
  // CN = BMPString "Ab": code units below 0x100 become one byte each.
  EXPECT_STREQ(name_slots(from_hex("300f310d300b0603550403 1e0400410062")).slot[4], "Ab");
  Crypt_GetBMPTable(nullptr);
}

// A value that does not decode fails the whole name, the decoder's own entry first.
struct BadName {
  const char* what;
  const char* der;
  Entries entries;
};

class NameDecodeFailure : public testing::TestWithParam<BadName> {};

TEST_P(NameDecodeFailure, ListsTheFailingStep) {
  Crypt_GetBMPTable(nullptr);
  const Bytes der = from_hex(GetParam().der);
  X500_NAME sentinel{};
  X500_NAME* list = &sentinel;  // must be reset to null
  EXPECT_EQ(hylorn::Der_Decode_X500_Name(static_cast<hylorn::u32>(der.size()), der.data(), &list),
            1u);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(read_errors(), GetParam().entries);
}

const ErrEntry kTypeError{208, 12, "type error"};

INSTANTIATE_TEST_SUITE_P(
    Table, NameDecodeFailure,
    testing::Values(
        BadName{"one octet", "30", {{208, 1, "der_x500_name length error, encode error"}}},
        BadName{"UTF8String", "300c310a300806035504030c0161", {kTypeError}},
        BadName{"UniversalString", "300f310d300b06035504031c0400000061", {kTypeError}},
        BadName{"second RDN UTF8String",
                "3018310a3008060355040313016131 0a30080603550403 0c0162",
                {kTypeError}},
        BadName{"empty SET", "30023100", {{208, 7, ""}}},
        BadName{"type only", "300931073005 0603550403", {{208, 10, ""}}},
        BadName{"unknown attribute",
                "300c310a3008060355042d130161",
                {{102, 1, "ASN1 oidValue not found"}, {208, 9, "ASN1_Find_Oid_Value"}}},
        BadName{"PrintableString length past its element",
                "300c310a30080603550403130261",
                {{108, 11, "data length"}, {208, 5, "ASN1_Decode_Sequence"}}},
        BadName{"BMPString without a table",
                "300f310d300b0603550403 1e0400410062",
                {{156, 10, "BMP table not loaded."}, {208, 13, "ASN1_Decode_BMPString"}}}),
    [](const auto& info) {
      std::string n = info.param.what;
      for (char& c : n) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      return n;
    });

// Guards the per-slot error numbers of the caller conversion: the slot's type identifier
// copy fails in the 1st, 3rd ... allocation, its value in the 2nd, 4th ...
TEST(NameConvert, AllocationFailuresNumberBySlotVisit) {
  // Visit positions 0 (countryName) and 15 (postOfficeBox, visited last).
  const USER_X500_NAME user = user_name({{0, "C"}, {13, "box"}});
  struct Case {
    int fail;
    Entries entries;
  };
  const Case cases[] = {
      {1, {{213, 1, "malloc"}, {305, 2, "new_X500_NAME"}}},
      {2, {{132, 1, "malloc"}, {101, 2, "copy DATA_BUFFER"}, {305, 4, "ASN1_Find_Object_ID"}}},
      {3, {{132, 1, "malloc"}, {305, 5, "copy_DATA_BUFFER"}}},
      {4, {{213, 1, "malloc"}, {305, 63, "new_X500_NAME"}}},
      {6, {{132, 1, "malloc"}, {305, 65, "copy_DATA_BUFFER"}}},
  };
  for (const Case& c : cases) {
    X500_NAME* list = nullptr;
    {
      FailNthMalloc fail(c.fail);
      EXPECT_EQ(hylorn::u2l_X500_NAME(&user, &list), 1u) << c.fail;
    }
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(read_errors(), c.entries) << c.fail;
  }
}

}  // namespace
