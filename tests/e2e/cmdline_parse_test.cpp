// The small parsers the options share, called directly.
#include <gtest/gtest.h>

#include <string>

#include "app/cmdline.h"
#include "app/log.h"

namespace {

// The parsers' own messages are not what these cases look at: both run at
// verbosity 0.
TEST(CmdlineParse, GetString) {
  LOG_SetVerbosity(0);
  struct Case {
    std::string in;
    int result;
    const char* value;
    const char* rest;   // where the cursor is left
  };
  const Case cases[] = {
      {"  name.hex", 0, "name.hex", ""},
      {"a.bin , 0x100", 0, "a.bin ", ", 0x100"},   // blanks inside a name are kept
      {"\"a,b.bin\" ,1", 0, "a,b.bin", ",1"},
      {"\"open end", 0, "open end", ""},
      {"x\"y", 0, "x", "y"},
      {"line\r\nnext", 0, "line", "next"},
      {"", -1, "", ""},
      {",a", -1, "", ",a"},
      {"\"\"", -1, "", ""},
  };
  for (const Case& c : cases) {
    char buffer[512];
    const char* cursor = c.in.c_str();
    EXPECT_EQ(CMDLINE_GetString(&cursor, buffer, sizeof buffer), c.result) << c.in;
    if (c.result == 0) {
      EXPECT_STREQ(buffer, c.value) << c.in;
    }
    EXPECT_STREQ(cursor, c.rest) << c.in;
  }
}

TEST(CmdlineParse, GetNumber) {
  LOG_SetVerbosity(0);
  struct Case {
    const char* in;
    uint32_t value;
    const char* complaint;   // null: none
    const char* rest;
  };
  const char* decimal = "Expected an decimal digit (0-9)";
  const char* hex = "Expected a hexadecimal digit (0-9, A-F) after hex specified \"0x\"";
  const Case cases[] = {
      {" 1234,5", 1234, nullptr, ",5"},
      {"0x1fFf-2", 0x1FFF, nullptr, "-2"},
      {"0X10", 0, nullptr, "X10"},
      {"4294967295", 4294967295u, nullptr, ""},
      {"4294967296", 0, nullptr, ""},              // wraps silently
      {"0x123456789", 0x23456789, nullptr, ""},
      {"0xg", 0, hex, "g"},
      {"-1", 0, decimal, "-1"},
      {"", 0, decimal, ""},
  };
  for (const Case& c : cases) {
    char error[256] = "";
    const char* cursor = c.in;
    EXPECT_EQ(CMDLINE_GetNumber(&cursor, error), c.value) << c.in;
    EXPECT_STREQ(error, c.complaint != nullptr ? c.complaint : "") << c.in;
    EXPECT_STREQ(cursor, c.rest) << c.in;
  }
}

}  // namespace
