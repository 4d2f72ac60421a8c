// Formatter and helper tests. The formatter is the one place every message
// goes through, so its cases are spelled out against exact expected text.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "util/util.h"

namespace {

// The cases hand formats in as data and use forms the bounded formatter
// defines its own way (no flags, unknown letters), so the format checks are
// off here.
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-extra-args"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

// Formats into a buffer of the given size and checks that the returned end
// pointer is the terminator and nothing was written past the size.
template <typename... Args>
std::string Fmt(int size, const char* format, Args... args) {
  char buf[256];
  std::memset(buf, 'Z', sizeof buf);
  char* end = UTIL_snprintf(buf, size, format, args...);
  EXPECT_EQ(*end, '\0');
  EXPECT_EQ(end - buf, static_cast<long>(std::strlen(buf)));
  EXPECT_EQ(buf[size], 'Z') << "wrote past the size";
  return buf;
}

// Where the formatter departs from the C library (the agreeing forms are
// compared with it below), and the 64-bit path.
TEST(UtilFormat, ItsOwnRules) {
  EXPECT_EQ(Fmt(200, "%5d", -12), "-   12");  // the sign stands outside the width
  EXPECT_EQ(Fmt(200, "%05d", 12), "   12");   // "0" is a width digit, not a flag
  EXPECT_EQ(Fmt(200, "%.4d", -7), "-0007");
  EXPECT_EQ(Fmt(200, "%d", INT_MIN), "-2147483648");
  EXPECT_EQ(Fmt(200, "%ld", -5), "-5");  // one l keeps 32 bits
  EXPECT_EQ(Fmt(200, "%c", 'A'), "A");
  EXPECT_EQ(Fmt(200, "a%fb", 3), "ab");  // unknown letter: consumed, nothing written
  EXPECT_EQ(Fmt(200, "%%%d%%", 1), "%1%");
  EXPECT_EQ(Fmt(200, "%lld", LLONG_MIN), "-9223372036854775808");
  EXPECT_EQ(Fmt(200, "%llu", -1LL), "18446744073709551615");
  EXPECT_EQ(Fmt(200, "%12lld", -42LL), "-          42");
  EXPECT_EQ(Fmt(200, "%llld", 5000000000LL), "5000000000");  // more than two l's are still 64 bits
  // Arguments after a 64-bit one are still read at the right place.
  EXPECT_EQ(Fmt(200, "%lld/%d/%s", 1LL << 40, -3, "x"), "1099511627776/-3/x");
  EXPECT_EQ(Fmt(200, "[%10.2s]", "text"), "[text]");  // width and precision ignored
  EXPECT_EQ(Fmt(200, "%p", reinterpret_cast<void*>(0x1234)), "    1234");
  EXPECT_EQ(Fmt(200, "%p", reinterpret_cast<void*>(0xDEADBEEFull)), "deadbeef");
}

// Where the C library and the bounded formatter agree (no sign, precision
// from 1 on), both must give the same text; a negative value is the minus
// sign followed by the formatting of its magnitude.
TEST(UtilFormat, AgreesWithTheCLibraryOnTheCommonSubset) {
  const long long values[] = {
      0, 1, 9, 10, 255, 4095, 65536, 0x7FFFFFFF, 0xFFFFFFFFLL, 0x100000000LL, 123456789012345LL, 0x7FFFFFFFFFFFFFFFLL};
  for (const char* len : {"", "ll"}) {
    const bool wide = len[0] != '\0';
    for (char conv : {'d', 'u', 'x', 'X'}) {
      for (int width = 0; width <= 22; width += 3) {
        for (int prec = -1; prec <= 21; prec += 4) {
          char fmt[32];
          if (prec < 0) {
            std::snprintf(fmt, sizeof fmt, "%%%d%s%c", width, len, conv);
          } else {
            std::snprintf(fmt, sizeof fmt, "%%%d.%d%s%c", width, prec == 0 ? 1 : prec, len, conv);
          }
          for (long long v : values) {
            if (!wide && v > 0xFFFFFFFFLL) continue;
            char ours[128], neg[128], ref[128];
            auto print = [&](auto x) {  // x is passed as the length letter says
              UTIL_snprintf(ours, sizeof ours, fmt, x);
              UTIL_snprintf(neg, sizeof neg, fmt, -x);
              std::snprintf(ref, sizeof ref, fmt, x);
            };
            wide ? print(v) : print(static_cast<unsigned>(v));
            if (conv == 'd' && !wide && v > 0x7FFFFFFF) continue;  // negative as int: below
            EXPECT_STREQ(ours, ref) << fmt << " of " << v;
            if (conv == 'd' && v > 0) {
              EXPECT_EQ(std::string(neg), "-" + std::string(ref)) << fmt << " of " << -v;
            }
          }
        }
      }
    }
  }
}

// Output stops at size - 1 characters, and the end pointer is still the
// terminator (Fmt checks it), so formats can chain.
TEST(UtilFormat, TruncatesAndChains) {
  EXPECT_EQ(Fmt(1, "%d", 12345), "");
  EXPECT_EQ(Fmt(4, "%8d", 1), "   ");
  EXPECT_EQ(Fmt(6, "%s-%s", "abc", "def"), "abc-d");
  EXPECT_EQ(Fmt(3, "%.8X", 1), "00");
  // Size 0 stores nothing at all, not even a terminator.
  char b[4] = {'Q', 'Q', 'Q', 'Q'};
  EXPECT_EQ(UTIL_snprintf(b, 0, "%d", 1), b);
  EXPECT_EQ(b[0], 'Q');
}

TEST(UtilString, CopyAppendAndCompare) {
  char b[8];
  UTIL_strcpy(b, "abcdefghij", sizeof b);
  EXPECT_STREQ(b, "abcdefg");
  UTIL_strcpy(b, "ab", sizeof b);
  UTIL_strncat(b, "cdefghij", 2, sizeof b);
  EXPECT_STREQ(b, "abcd");
  UTIL_strncat(b, "xyz", 10, 6);
  EXPECT_STREQ(b, "abcdx");
  // Null pointers and empty sizes leave everything as it is.
  UTIL_strcpy(b, nullptr, sizeof b);
  UTIL_strcat(nullptr, "x", 4);
  UTIL_strcpy(b, "zz", 0);
  EXPECT_STREQ(b, "abcdx");
  EXPECT_EQ(UTIL_strlen(nullptr), 0);
  EXPECT_EQ(UTIL_strlen("abc"), 3);

  EXPECT_EQ(UTIL_stricmp("-ReadRange", "-readrange"), 0);
  EXPECT_GT(UTIL_stricmp("abcd", "ABC"), 0);
  EXPECT_EQ(UTIL_stricmp("a", "b"), 'a' - 'b');
  // Bytes from 0x80 on are unfolded and compare as signed values.
  EXPECT_LT(UTIL_stricmp("\xC4", "a"), 0);
  EXPECT_EQ(UTIL_strnicmp("-OPENprj", "-openPRJX", 8), 0);
  EXPECT_NE(UTIL_strnicmp("-OPENprj", "-openPRJX", 9), 0);
  EXPECT_EQ(UTIL_strnicmp("x", "y", 0), 0);
  EXPECT_EQ(UTIL_strnicmp("[", "{", 1), '[' - '{');  // only letters fold
}

TEST(UtilBytes, CompareScanAndStore) {
  const uint8_t a[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  uint8_t b[sizeof a];
  std::memcpy(b, a, sizeof a);
  EXPECT_EQ(UTIL_memcmp(a, b, sizeof a), -1);
  b[9] = 0;
  EXPECT_EQ(UTIL_memcmp(a, b, sizeof a), 9);

  uint8_t blank[300];
  std::memset(blank, 0xFF, sizeof blank);
  EXPECT_EQ(UTIL_FindFirstByteNot(blank, 0xFF, sizeof blank), -1);
  EXPECT_EQ(UTIL_FindFirstByteNot(blank, 0xFF, 0), -1);
  for (int pos : {0, 7, 8, 9, 255, 299}) {
    std::memset(blank, 0xFF, sizeof blank);
    blank[pos] = 0xFE;
    EXPECT_EQ(UTIL_FindFirstByteNot(blank, 0xFF, sizeof blank), pos);
    EXPECT_EQ(UTIL_FindFirstByteNot(blank, 0xFF, pos), -1);
  }
  EXPECT_EQ(UTIL_AbsDiff(3, 10), 7u);
  EXPECT_EQ(UTIL_AbsDiff(~0ull, 0), ~0ull);

  uint8_t w[4];
  UTIL_StoreU32(w, 0x11223344, 1);
  EXPECT_EQ((std::vector<uint8_t>(w, w + 4)), (std::vector<uint8_t>{0x11, 0x22, 0x33, 0x44}));
  UTIL_StoreU32(w, 0x11223344, 0);
  EXPECT_EQ((std::vector<uint8_t>(w, w + 4)), (std::vector<uint8_t>{0x44, 0x33, 0x22, 0x11}));
  UTIL_StoreU32(nullptr, 1, 1);  // tolerated
}

TEST(UtilText, ParseNumbersAndTokens) {
  struct Case {
    const char* text;
    int result;
    uint32_t value;
  } cases[] = {
      {"0", 0, 0},        {"1234", 0, 1234}, {"42abc", 0, 42}, {"0x1F", 0, 0x1F}, {"0XdeadBEEF", 0, 0xDEADBEEF},
      {"0x10g", 0, 0x10}, {"0xg", -1, 0},    {"0x", -1, 0},    {"x12", -1, 0},    {" 12", -1, 0},
      {"", -1, 0},        {"-1", -1, 0},
  };
  for (const Case& c : cases) {
    uint32_t v = 0;
    EXPECT_EQ(UTIL_ParseU32(c.text, &v), c.result) << c.text;
    EXPECT_EQ(v, c.result == 0 ? c.value : 0) << c.text;
  }

  char tok[8];
  const char* cur = " \t\r\nfirst,second third\r\n";
  EXPECT_EQ(UTIL_ParseToken(&cur, tok, sizeof tok, ','), nullptr);
  EXPECT_STREQ(tok, "first");
  EXPECT_EQ(*cur, ',');
  ++cur;
  EXPECT_EQ(UTIL_ParseToken(&cur, tok, sizeof tok, ','), nullptr);
  EXPECT_STREQ(tok, "second");
  EXPECT_EQ(UTIL_ParseToken(&cur, tok, sizeof tok, ','), nullptr);
  EXPECT_STREQ(tok, "third");
  EXPECT_STREQ(UTIL_ParseToken(&cur, tok, sizeof tok, ','), "Expected a string");
  const char* longText = "abcdefgh";  // 8 characters reach maxLength 8
  cur = longText;
  EXPECT_STREQ(UTIL_ParseToken(&cur, tok, 8, ','), "Maximum string length exceeded");
  EXPECT_EQ(cur, longText);
  cur = "abcdefg";
  EXPECT_EQ(UTIL_ParseToken(&cur, tok, 8, ','), nullptr);
  EXPECT_STREQ(tok, "abcdefg");
}

// Each value printed by `print` into a 64-byte buffer gives its text.
template <typename T, size_t N, typename Print>
void ExpectTexts(const std::pair<T, const char*> (&cases)[N], Print print) {
  for (const auto& [value, expected] : cases) {
    char buf[64];
    print(buf, static_cast<int>(sizeof buf), value);
    EXPECT_STREQ(buf, expected) << std::hex << value;
  }
}

// The layer's formatting helpers: sizes, durations, float bit patterns and
// addresses (the program itself prints none of them).
TEST(UtilPrint, HelpersByTable) {
  const std::pair<uint32_t, const char*> sizes[] = {
      {0, "0 Bytes"},     {1, "1 Byte"},        {2, "2 Bytes"},     {512, "512 Bytes"},
      {1024, "1 KB"},     {1536, "1.5 KB"},     {1u << 20, "1 MB"}, {3u << 19, "1.5 MB"},
      {1u << 30, "1 GB"}, {3u << 29, "1.5 GB"}, {1u << 31, "2 GB"}, {0xFFFFFFFF, "4294967295 Bytes"},
  };
  ExpectTexts(sizes, UTIL_PrintBytes);
  const std::pair<uint64_t, const char*> durations[] = {
      {0, "0.000 000"},
      {1234567, "1.234 567"},
      {61000001, "1:01.000 001"},
      {3600000000ull + 2 * 60000000ull + 3000000 + 4005, "1:02:03.004 005"},
      {100ull * 3600000000ull, "100:00:00.000 000"},
  };
  ExpectTexts(durations, UTIL_PrintDuration);
  const std::pair<uint32_t, const char*> floats[] = {
      {0x00000000, "0.0"},        {0x80000000, "-0.0"},        {0x3F800000, "1"},     {0xC0490FDB, "-3.14159"},
      {0x7F800000, "Infinite"},   {0xFF800000, "-Infinite"},   {0x7FC00000, "NaNq"},  {0x7F800001, "NaNs"},
      {0x00000001, "1.4013E-45"}, {0x80000001, "-1.4013E-45"}, {0x4B189680, "1E+07"},
  };
  ExpectTexts(floats, UTIL_PrintFloatBits);
  const std::pair<uint32_t, const char*> addresses[] = {{0xC0A80114, "192.168.1.20"}, {0xFFFFFFFF, "255.255.255.255"}};
  ExpectTexts(addresses, UTIL_PrintIPv4);

  char buf[64];
  const UTIL_REGION regions[] = {{4, 4096}, {1, 32768}, {3, 1}};
  UTIL_PrintRegions(buf, sizeof buf, regions, 3);
  EXPECT_STREQ(buf, "16 KB + 32 KB + 3 Bytes");
  UTIL_PrintRegions(buf, 10, regions, 3);
  EXPECT_STREQ(buf, "16 KB + 3");
  const uint8_t mac[6] = {0x00, 0x22, 0xC7, 0x0A, 0xBC, 0xFF};
  UTIL_PrintHWAddr(buf, sizeof buf, mac, ':');
  EXPECT_STREQ(buf, "00:22:C7:0A:BC:FF");
  UTIL_PrintHWAddr(buf, 6, mac, '-');
  EXPECT_STREQ(buf, "00-22");
}

TEST(UtilCopyAPIStruct, SizesDecideTheCopy) {
  struct Rec {
    uint32_t size;
    uint8_t data[4100];
  };
  static Rec src, dst;
  struct Case {
    uint32_t srcSize, dstSize;
    int copied, zeroedTo;  // data bytes taken from the source, then zeros up to zeroedTo
  } cases[] = {
      {16, 4, 0, 0},             // only the size field: nothing copied
      {8, 16, 4, 12},            // shorter source: its bytes, then zeros
      {100, 12, 8, 8},           // longer source: cut at the destination size
      {16, 4102, 0, 0},          // refused silently: too large
      {16, 15, 0, 0},            // or not a multiple of 4
      {4100, 4100, 4096, 4096},  // the largest accepted record
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.srcSize << " into " << c.dstSize);
    std::memset(&src, 0xAA, sizeof src);
    std::memset(&dst, 0x55, sizeof dst);
    src.size = c.srcSize;
    dst.size = c.dstSize;
    UTIL_CopyAPIStruct(&dst, &src, "REC");
    EXPECT_EQ(dst.size, c.dstSize);
    for (int i = 0; i < c.copied; ++i) ASSERT_EQ(dst.data[i], 0xAA) << i;
    for (int i = c.copied; i < c.zeroedTo; ++i) ASSERT_EQ(dst.data[i], 0) << i;
    EXPECT_EQ(dst.data[c.zeroedTo], 0x55);
  }
}

}  // namespace
