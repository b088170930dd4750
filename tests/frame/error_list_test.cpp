#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "frame/error.h"
#include "hylorn.h"
#include "support/error_list.h"

using hylorn_test::ErrEntry;
using hylorn_test::read_errors;

TEST(ErrorList, EmptyListLeavesOutputUntouched) {
  hylorn::Crypt_Clear_Err();
  char out[8];
  std::memset(out, 'x', sizeof out);
  EXPECT_EQ(Crypt_Get_Err(out), 0u);
  for (char c : out) EXPECT_EQ(c, 'x');
}

TEST(ErrorList, EntriesComeBackInOrderOneLineEach) {
  hylorn::Crypt_Clear_Err();
  hylorn::Crypt_Put_Err(108, 9, "data length");
  hylorn::Crypt_Put_Err(203, 1, "ASN1_Decode_Sequence");
  EXPECT_EQ(hylorn_test::error_text(),
            "func_no = 108 err_no = 9 err_msg = data length\n"
            "func_no = 203 err_no = 1 err_msg = ASN1_Decode_Sequence\n");
  // Reading does not empty the list.
  EXPECT_EQ(read_errors().size(), 2u);
}

TEST(ErrorList, KeepsTheFirstSixteenEntries) {
  hylorn::Crypt_Clear_Err();
  for (int i = 1; i <= 18; ++i) hylorn::Crypt_Put_Err(100 + i, i, "m");
  auto entries = read_errors();
  ASSERT_EQ(entries.size(), 16u);
  EXPECT_EQ(entries.front(), (ErrEntry{101, 1, "m"}));
  EXPECT_EQ(entries.back(), (ErrEntry{116, 16, "m"}));
  // The worst case fits the documented output size.
  EXPECT_LT(hylorn_test::error_text().size(), size_t{HYLORN_ERR_TEXT_SIZE});
}

TEST(ErrorList, OverlongMessageIsCutToItsSlot) {
  hylorn::Crypt_Clear_Err();
  std::string long_msg(300, 'a');
  hylorn::Crypt_Put_Err(1, 1, long_msg.c_str());
  EXPECT_EQ(hylorn_test::error_text().size(), size_t{hylorn::kErrorSlotSize - 1});
}

TEST(ErrorList, ScopeEmptiesOnEntryAndReportsUnderItsNumber) {
  hylorn::Crypt_Put_Err(1, 1, "earlier, successful call");
  hylorn::ErrorScope err(120);
  EXPECT_EQ(err.fail(6, "memory"), 1u);
  EXPECT_EQ(err.fail_with(2, 7, "x"), 2u);
  EXPECT_EQ(read_errors(), (std::vector<ErrEntry>{{120, 6, "memory"}, {120, 7, "x"}}));
}

TEST(ErrorList, KeepListScopeAppends) {
  hylorn::Crypt_Clear_Err();
  hylorn::Crypt_Put_Err(107, 1, "inner");
  hylorn::ErrorScope::keep_list(132).fail(1, "malloc");
  EXPECT_EQ(read_errors(), (std::vector<ErrEntry>{{107, 1, "inner"}, {132, 1, "malloc"}}));
}

TEST(Frame, VersionAndEnvironment) {
  unsigned major = 0, minor = 0;
  EXPECT_EQ(Crypt_Get_Soft_Version(&major, &minor), 0u);
  EXPECT_EQ(major, 1u);
  EXPECT_EQ(minor, 10u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Crypt_ClearEnvironment(), 0u);
    EXPECT_EQ(Crypt_InitEnvironment(), 0u);
  }
}
