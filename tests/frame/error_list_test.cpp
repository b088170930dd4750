// The error list as Crypt_Get_Err hands it out, and the version and environment calls.
#include "support/error_list.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "frame/error.h"
#include "hylorn.h"

namespace {

using namespace hylorn_test;

// Guards the line format and order, that reading does not empty the list, and that an
// empty list leaves the caller's buffer as it was.
TEST(ErrorList, EntriesComeBackInOrderOneLineEach) {
  hylorn::Crypt_Clear_Err();
  char out[8];
  std::memset(out, 'x', sizeof out);
  EXPECT_EQ(Crypt_Get_Err(out), 0u);
  EXPECT_EQ(std::string(out, sizeof out), std::string(sizeof out, 'x'));
  hylorn::Crypt_Put_Err(108, 9, "data length");
  hylorn::Crypt_Put_Err(203, 1, "ASN1_Decode_Sequence");
  const std::string expected =
      "func_no = 108 err_no = 9 err_msg = data length\n"
      "func_no = 203 err_no = 1 err_msg = ASN1_Decode_Sequence\n";
  EXPECT_EQ(error_text(), expected);
  EXPECT_EQ(error_text(), expected);
}

// Guards the 16-entry cap (the first ones are kept) and the 128-byte slot that cuts an
// over-long entry; 16 cut entries, the worst case, fit the documented output size.
TEST(ErrorList, KeepsTheFirstSixteenEntriesCutToTheirSlots) {
  const std::string long_msg(300, 'a');
  hylorn::Crypt_Clear_Err();
  for (int i = 1; i <= 18; ++i) hylorn::Crypt_Put_Err(100 + i, i, i == 16 ? long_msg.c_str() : "m");
  const auto entries = read_errors();
  ASSERT_EQ(entries.size(), 16u);
  EXPECT_EQ(entries.front(), (ErrEntry{101, 1, "m"}));
  EXPECT_EQ(entries.back().func_no, 116);
  const std::string text = error_text();
  EXPECT_EQ(text.size() - text.rfind('\n') - 1, std::size_t{hylorn::kErrorSlotSize - 1});
  hylorn::Crypt_Clear_Err();
  for (int i = 1; i <= 18; ++i) hylorn::Crypt_Put_Err(100 + i, i, long_msg.c_str());
  EXPECT_EQ(error_text().size(), 16 * std::size_t{hylorn::kErrorSlotSize - 1});
  EXPECT_LT(error_text().size(), std::size_t{HYLORN_ERR_TEXT_SIZE});
}

// Guards the version numbers and that the bracketing calls succeed in any order.
TEST(Frame, VersionAndEnvironment) {
  unsigned major = 0, minor = 0;
  EXPECT_EQ(Crypt_Get_Soft_Version(&major, &minor), 0u);
  EXPECT_EQ(major, 1u);
  EXPECT_EQ(minor, 10u);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Crypt_ClearEnvironment(), 0u);
    EXPECT_EQ(Crypt_InitEnvironment(), 0u);
  }
}

}  // namespace
