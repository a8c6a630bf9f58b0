// Test helper: the attributes of the first character of a word in an attributed string, with a
// test failure when the word is not there.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Classes/Unicode.h"
#include "webcontent/documents/AttributedString.h"

namespace ferncast::test_support {

inline Attributes attributesOfWord(const AttributedString& string, std::u16string_view word) {
  std::size_t index = string.string().find(word);
  EXPECT_NE(index, std::u16string::npos)
      << utf16ToUtf8(word) << " in " << utf16ToUtf8(string.string());
  return index == std::u16string::npos ? Attributes{} : string.attributesAtIndex(index);
}

}  // namespace ferncast::test_support
