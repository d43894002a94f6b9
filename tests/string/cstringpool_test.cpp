// The string pool: interning from every source, the hashes, the two orderings, ageing,
// integrity checks and allocation failure.
#include <vorx/core.h>
#include <vorx/string.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/develop.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::String;

namespace {

unsigned char const * U8(char const * text) {
  return reinterpret_cast<unsigned char const *>(text);
}

// One ageing pass over the whole table; true when it ran.
bool Collect() {
  return CStringPool::Collect(0xFFFFFFFFu);
}

// CRC-64/ECMA-182 bit by bit (no table), as an oracle for the pool's hashes: each character
// feeds its low byte, then its high byte.
std::uint64_t Crc64Bitwise(std::u16string const & units) {
  std::uint64_t crc = 0;
  for (char16_t u : units) {
    for (unsigned byte : {u & 0xFFu, unsigned{u} >> 8}) {
      crc ^= std::uint64_t{byte} << 56;
      for (int bit = 0; bit < 8; ++bit) {
        crc = (crc & (std::uint64_t{1} << 63)) ? (crc << 1) ^ 0x42F0E1EBA9EA3693u : crc << 1;
      }
    }
  }
  return crc;
}

// A lower-case ASCII text of `length` characters, varied by `step`.
std::u16string Ascii(std::size_t length, std::size_t step) {
  std::u16string text;
  for (std::size_t i = 0; i < length; ++i) {
    text += static_cast<char16_t>(u'a' + (i * step + length) % 26);
  }
  return text;
}

// Interned during the static initialisation of the test program, before any `AppInit`.
CPPoolString const g_internedAtLoad(u"interned-at-load");

TEST(StringPool, NullAndEmptySourcesGiveTheStaticRecords) {
  std::uint64_t const records = CStringPool::GetNItems();
  std::uint16_t const emptyUnits[] = {0};
  EXPECT_TRUE(CStringPool::GetStringRefn(static_cast<std::uint16_t const *>(nullptr), 5).isnull());
  EXPECT_TRUE(CStringPool::QueryStringRef(u"never-interned-text").isnull());
  EXPECT_TRUE(CStringPool::GetStringRef(static_cast<IStringSubmitter *>(nullptr)).isnull());
  EXPECT_TRUE(CStringPool::GetStringRef(U8("")).isempty());
  EXPECT_TRUE(CStringPool::GetStringRefn(emptyUnits, 5).isempty());
  EXPECT_EQ(CStringPool::GetNItems(), records);
  EXPECT_TRUE(CPPoolString::pnull.sHash() == ~std::uint64_t{0} &&
              CPPoolString::pempty.sHashi() == 0);
}

TEST(StringPool, MeasuresCharactersWithThePairRuleAndUTF8Apart) {
  // The string, the units the record keeps, the characters fed to the hash, length, UTF-8 size.
  std::tuple<CPPoolString, std::u16string, std::u16string, std::uint64_t, std::uint64_t> const
      rows[] = {
          // U+00E9 LATIN SMALL LETTER E WITH ACUTE, U+20AC EURO SIGN: 2 and 3 UTF-8 bytes
          {CPPoolString(u"\u00E9\u20AC"), u"\u00E9\u20AC", u"\u00E9\u20AC", 2, 5},
          // U+1F600 as a pair: one character (its value collapses to 1) and only three units kept
          {CPPoolString(u"a\U0001F600b"), u"a\xD83D\xDE00", u"a\x0001\x0062", 3, 3},
          // U+1F600 from UTF-8: two units 0xD87D 0xDE00 (no subtraction), low 16 bits hashed
          {CPPoolString(U8("a\xF0\x9F\x98\x80")), u"a\xD87D\xDE00", u"a\xF600", 3, 5},
      };
  for (auto const & [s, stored, hashed, length, utf8Size] : rows) {
    EXPECT_EQ(std::u16string(s), stored);
    EXPECT_EQ(std::make_pair(s.len(), s.UTF8Size()), std::make_pair(length, utf8Size)) << length;
    EXPECT_EQ(s.sHash(), Crc64Bitwise(hashed)) << length;
  }
  EXPECT_EQ(CPPoolString(u"AbC\u00C9").sHashi(), Crc64Bitwise(u"abc\u00E9"));
  // A lone surrogate cannot be measured; a pair cut by the count leaves the text before it.
  EXPECT_TRUE(CStringPool::GetStringRef(u"a\xDC00").isnull());
  EXPECT_TRUE(CStringPool::GetStringRefn(u"ab\xD83D\xDE00", 3) == CPPoolString(u"ab"));
  EXPECT_TRUE(CStringPool::GetStringRef(U8("a\xC3")).isnull());            // cut sequence
  EXPECT_TRUE(CStringPool::GetStringRef(U8("\xF4\x90\x80\x80")).isnull()); // above U+10FFFF
  EXPECT_TRUE(CStringPool::GetStringRefn(U8("ab\xC3\xA9"), 3) == CPPoolString(u"ab"));
}

// Texts of ASCII alone take shorter ways (hashed where they lie; UTF-8 widened on the stack up
// to a bound); every length around the CRC's 8-, 16-, 32- and 64-byte steps and the UTF-8 bound
// must hash as the definition and give one record from every source, creating nothing more.
TEST(StringPool, AsciiTextsOfEveryLengthHashAsTheDefinitionFromEverySource) {
  EXPECT_TRUE(CStringPool::QueryStringRef(u"interned-at-load") == g_internedAtLoad);
  for (std::size_t length = 1; length <= 200; ++length) {
    SCOPED_TRACE(length);
    std::u16string text;
    std::u16string lowered;
    for (std::size_t i = 0; i < length; ++i) {
      // Upper case only in some texts, so both the shared and the separate lowered hash run.
      char const c = length % 3 == 0 && i % 4 == 1 ? static_cast<char>('A' + i % 26)
                                                   : static_cast<char>('a' + (i * 7 + length) % 26);
      text += static_cast<char16_t>(c);
      lowered += static_cast<char16_t>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    }
    std::string const utf8(text.begin(), text.end());
    std::vector<std::uint16_t> units(text.begin(), text.end());
    std::u16string const longer = text + u"XYZ";
    std::string const longerUTF8 = utf8 + "\xC3\xA9"; // a non-ASCII character past the count
    CPPoolString const s = CStringPool::GetStringRef(text.c_str());
    EXPECT_EQ(std::make_pair(s.len(), s.UTF8Size()), std::make_pair(length, length));
    EXPECT_EQ(s.sHash(), Crc64Bitwise(text));
    EXPECT_EQ(s.sHashi(), Crc64Bitwise(lowered));
    long const blocks = vorx::test::LiveBlocks();
    CPPoolString const same[] = {
        CStringPool::GetStringRef(U8(utf8.c_str())),
        CStringPool::GetStringRefn(U8(longerUTF8.c_str()), length),
        CStringPool::GetStringRefn(longer.c_str(), length),
        CStringPool::GetStringRefn(units.data(), length),
        CStringPool::GetStringRefi(lowered.c_str()),
        CStringPool::GetStringRefni(U8(longerUTF8.c_str()), length),
        CStringPool::QueryStringRefi(lowered.c_str()),
        CStringPool::QueryStringRefni(longer.c_str(), length),
    };
    for (std::size_t i = 0; i < std::size(same); ++i) {
      EXPECT_TRUE(same[i] == s) << "source " << i;
    }
    EXPECT_EQ(vorx::test::LiveBlocks(), blocks) << "nothing is created for a known text";
  }
}

// The scan of an ASCII text may look at whole aligned blocks around it: zeros and non-ASCII
// characters just before its start or just after its end (or its count) change nothing.
TEST(StringPool, WhatLiesAroundATextDoesNotChangeItsRecord) {
  // Eight units (sixteen bytes) before each start keep the alignment; a zero lies just before it.
  alignas(16) char16_t wideArea[104];
  alignas(16) unsigned char utf8Area[112];
  char16_t * const wide = wideArea + 8;
  unsigned char * const utf8 = utf8Area + 16;
  for (std::size_t length = 1; length <= 40; ++length) {
    std::u16string const text = Ascii(length, 5);
    CPPoolString const s = CStringPool::GetStringRef(text.c_str());
    for (std::size_t at = 0; at < 16; ++at) {
      SCOPED_TRACE(testing::Message() << "length " << length << " at " << at);
      std::fill(std::begin(wideArea), std::end(wideArea), u'\u00C9');
      std::fill(std::begin(utf8Area), std::end(utf8Area), 0xC3);
      std::size_t const wideAt = at % 8;
      wide[wideAt - 1] = 0;
      utf8[at - 1] = 0;
      std::copy(text.begin(), text.end(), wide + wideAt);
      std::copy(text.begin(), text.end(), utf8 + at);
      // Counted first, with a non-ASCII character right after the count, then terminated.
      EXPECT_TRUE(CStringPool::GetStringRefn(wide + wideAt, length) == s);
      EXPECT_TRUE(CStringPool::GetStringRefn(utf8 + at, length) == s);
      wide[wideAt + length] = 0;
      utf8[at + length] = 0;
      EXPECT_TRUE(CStringPool::GetStringRef(wide + wideAt) == s);
      EXPECT_TRUE(CStringPool::GetStringRef(utf8 + at) == s);
      // A non-ASCII character inside the text is seen wherever it falls.
      wide[wideAt + length / 2] = u'\u00E9';
      utf8[at + length / 2] = 0x80;
      EXPECT_EQ(CStringPool::GetStringRef(wide + wideAt).UTF8Size(), length + 1);
      EXPECT_TRUE(CStringPool::GetStringRef(utf8 + at).isnull()) << "a lone continuation byte";
    }
  }
}

// A text that ends where readable memory ends (the next page inaccessible) is read no further,
// counted or terminated, wide or UTF-8.
TEST(StringPool, ATextAtTheEndOfReadableMemoryIsReadNoFurther) {
  // Two readable pages, each followed by an inaccessible one: wide text, then UTF-8.
  std::size_t const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  char * const area = static_cast<char *>(
      mmap(nullptr, 4 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(static_cast<void *>(area), MAP_FAILED);
  ASSERT_EQ(mprotect(area + page, page, PROT_NONE), 0);
  ASSERT_EQ(mprotect(area + 3 * page, page, PROT_NONE), 0);
  char16_t * const wideEnd = reinterpret_cast<char16_t *>(area + page);
  unsigned char * const utf8End = reinterpret_cast<unsigned char *>(area + 3 * page);
  for (std::size_t length = 1; length <= 24; ++length) {
    SCOPED_TRACE(length);
    std::u16string const text = Ascii(length, 3);
    CPPoolString const s = CStringPool::GetStringRef(text.c_str());
    std::copy(text.begin(), text.end(), wideEnd - length);
    std::copy(text.begin(), text.end(), utf8End - length);
    EXPECT_TRUE(CStringPool::GetStringRefn(wideEnd - length, length) == s);
    EXPECT_TRUE(CStringPool::GetStringRefn(utf8End - length, length) == s);
    std::copy(text.begin(), text.end(), wideEnd - length - 1);
    wideEnd[-1] = 0;
    std::copy(text.begin(), text.end(), utf8End - length - 1);
    utf8End[-1] = 0;
    EXPECT_TRUE(CStringPool::GetStringRef(wideEnd - length - 1) == s);
    EXPECT_TRUE(CStringPool::GetStringRef(utf8End - length - 1) == s);
  }
  munmap(area, 4 * page);
}

TEST(StringPool, TextsOfEqualHashesAndLengthAreOneRecordWhenTheirFirstTenCharactersAgree) {
  // The CRC is linear: texts whose difference is the generator polynomial (times x^15) have
  // equal hashes. Here it is spread over five characters without case after a ten-character head.
  std::u16string const a = u"0123456789\uE000\u6000\u6000\uC000\u4E00";
  std::u16string const b = u"0123456789\u98A1\u9570\u95D4\u891B\u4E80";
  ASSERT_EQ(Crc64Bitwise(a), Crc64Bitwise(b));
  CPPoolString const first(a.c_str());
  EXPECT_TRUE(CStringPool::QueryStringRef(b.c_str()) == first) << "b is taken for a";
}

// Slots of up to four entries are searched one way, longer slots another: with five texts per
// slot on average, both kinds hold texts, and every text is found again as the same record.
TEST(StringPool, ManyTextsAreFoundAgainInShortAndLongSlotsAlike) {
  std::vector<std::string> texts;
  std::vector<CPPoolString> held;
  for (std::size_t i = 0; i < 20000; ++i) {
    texts.push_back("many-texts-" + std::to_string(i * 7919));
    held.push_back(CStringPool::GetStringRef(U8(texts.back().c_str())));
  }
  std::size_t mismatches = 0;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    std::u16string const wide(texts[i].begin(), texts[i].end());
    mismatches += !(CStringPool::QueryStringRef(wide.c_str()) == held[i]) +
                  !(CStringPool::GetStringRef(U8(texts[i].c_str())) == held[i]);
  }
  EXPECT_EQ(mismatches, 0u);
  EXPECT_TRUE(CStringPool::QueryStringRef(U8("many-texts-1")).isnull());
}

TEST(StringPool, CaseVariantsFormOneGroupInOrderOfCreation) {
  std::uint64_t const records = CStringPool::GetNItems();
  {
    CPPoolString const abc = CStringPool::GetStringRef(u"Abc-group");
    CPPoolString const second = CStringPool::GetStringRef(u"aBC-GROUP");
    EXPECT_TRUE(!(second == abc) && second.iequals(abc));
    EXPECT_TRUE(CStringPool::GetStringRefi(u"aBC-GROUP") == abc &&
                CStringPool::QueryStringRefi(U8("ABC-group")) == abc)
        << "the first of the group";
    EXPECT_EQ(CStringPool::GetNItems(), records + 2);
  }
  // Once the first is gone, the group answers with the next.
  CPPoolString const keep = CStringPool::QueryStringRef(u"aBC-GROUP");
  EXPECT_TRUE(Collect() && Collect());
  EXPECT_TRUE(CStringPool::GetStringRefi(u"abc-group") == keep);
  EXPECT_EQ(CStringPool::GetNItems(), records + 1);
}

TEST(StringPool, AnUnheldStringLosesItsUTF8CopyOnTheFirstPassAndGoesOnTheSecond) {
  std::uint64_t const records = CStringPool::GetNItems();
  std::uint64_t const size = CStringPool::GetSize();
  CPPoolString s(u"size-me");
  // Header 32, fields 56, seven characters and the terminator 16.
  EXPECT_EQ(CStringPool::GetSize(), size + 104);
  static_cast<void>(static_cast<unsigned char const *>(s)); // makes the UTF-8 copy
  long const withCopy = vorx::test::LiveBlocks();
  s.free();
  EXPECT_TRUE(Collect());
  EXPECT_EQ(vorx::test::LiveBlocks(), withCopy - 1) << "the UTF-8 copy is dropped";
  EXPECT_EQ(CStringPool::GetNItems(), records + 1);
  EXPECT_TRUE(Collect());
  EXPECT_TRUE(CStringPool::GetNItems() == records && CStringPool::GetSize() == size);

  // Two strings of one slot both go: the removal of the first does not make the second look
  // held (regression: the walk's copy of the slot once counted as a holder).
  std::map<std::uint64_t, std::u16string> bySlot;
  std::u16string pair[2];
  for (int i = 0; pair[0].empty(); ++i) {
    std::string const n = std::to_string(i);
    std::u16string const text = u"same-slot-" + std::u16string(n.begin(), n.end());
    auto const [known, fresh] = bySlot.emplace(Crc64Bitwise(text) & 0xFFF, text);
    if (!fresh) {
      pair[0] = known->second;
      pair[1] = text;
    }
  }
  CPPoolString(pair[0].c_str());
  CPPoolString(pair[1].c_str());
  EXPECT_EQ(CStringPool::GetNItems(), records + 2);
  EXPECT_TRUE(Collect() && Collect());
  EXPECT_EQ(CStringPool::GetNItems(), records);
}

// Writes a fixed text (or fails to); counts how it is asked.
struct FixedSubmitter final : IStringSubmitter {
  FixedSubmitter(std::u16string units, std::uint64_t n, bool ok = true)
      : text(std::move(units)), length(n), succeed(ok) {}
  std::uint64_t GetStringLen() override {
    ++asked;
    return length;
  }
  bool GetString(qefWChar * out) override {
    ++written;
    // The pool gives room for the length and a terminator.
    std::copy_n(text.begin(), std::min<std::uint64_t>(text.size(), length + 1), out);
    return succeed;
  }
  std::u16string text;
  std::uint64_t length;
  bool succeed;
  int asked = 0, written = 0;
};

// Integrity checks and refused lengths are reported in the assumption box.
TEST(StringPool, VerifyAndRefusedLengthsShowTheAssumptionBox) {
  vorx::test::BoxCapture boxes;
  CPPoolString const s(u"verify-me");
  EXPECT_TRUE(CStringPool::Verify() && s.Verify());
  qefWChar * text = const_cast<qefWChar *>(static_cast<qefWChar const *>(s));
  text[0] = u'V'; // the text no longer matches its hashes
  EXPECT_FALSE(CStringPool::Verify() || s.Verify());
  text[0] = u'v';
  EXPECT_TRUE(CStringPool::Verify() && CPPoolString().Verify() && CPPoolString(true).Verify());
  // A submitter of length 0; a count that ends the text before its first character, a pair.
  FixedSubmitter zero(u"", 0);
  EXPECT_TRUE(CStringPool::GetStringRef(&zero).isnull());
  EXPECT_EQ(zero.written, 0);
  EXPECT_TRUE(CStringPool::GetStringRefn(u"\xD83D\xDE00", 1).isnull());
  std::string shown;
  for (auto const & box : boxes.Boxes()) {
    EXPECT_EQ(box.caption, "Illegal code point reached");
    shown += box.text + "|";
  }
  EXPECT_EQ(shown, "String pool integrity violation|_cppoolstring::create [submitter]: String "
                   "length cannot be 0|_cppoolstring::create: String length cannot be 0|");
}

TEST(StringPool, SubmittedTextIsInternedLikeAnyOther) {
  vorx::test::BoxCapture boxes;
  auto submit = [](std::u16string text, std::uint64_t length, bool succeeds = true) {
    FixedSubmitter submitter(std::move(text), length, succeeds);
    CPPoolString const s = CStringPool::GetStringRef(&submitter);
    EXPECT_EQ(submitter.asked + submitter.written, 2) << "asked once, written once";
    return s;
  };
  CPPoolString const known(u"submitted");
  // A length that counts the terminator, as the escaping encoders give it.
  EXPECT_TRUE(submit(std::u16string(u"submitted\0", 10), 10) == known);
  EXPECT_TRUE(submit(u"submittedX", 9) == known) << "units beyond the length are cut";
  EXPECT_TRUE(submit(u"never", 5, false).isnull());
  EXPECT_TRUE(submit(std::u16string(u"\0", 1), 3).isempty());
  EXPECT_TRUE(boxes.Boxes().empty());
}

// Interns `make()` with the first 0, 1, 2, ... allocations refused until it succeeds: every
// failure gives the null string, leaves the pool as it was and leaks nothing.
template <class F> void SucceedsAfterRefusals(F make, char const * label) {
  SCOPED_TRACE(label);
  std::uint64_t const records = CStringPool::GetNItems();
  std::uint64_t const groups = CStringPool::GetNGroups();
  for (long successes = 0; successes < 16; ++successes) {
    long const blocks = vorx::test::LiveBlocks();
    CPPoolString s;
    {
      vorx::test::AllocationFailure failure(successes);
      s = make();
      if (failure.Refused() == 0) {
        EXPECT_TRUE(!s.isnull() && CStringPool::Verify());
        return;
      }
    }
    EXPECT_TRUE(s.isnull() && vorx::test::LiveBlocks() == blocks && CStringPool::Verify() &&
                CStringPool::GetNItems() == records && CStringPool::GetNGroups() == groups)
        << successes;
  }
  ADD_FAILURE() << "never succeeded";
}

TEST(StringPool, AFailedAllocationLeavesThePoolAsItWas) {
  SucceedsAfterRefusals([] { return CStringPool::GetStringRef(u"alloc-new-group"); }, "new group");
  CPPoolString const first(u"alloc-variant");
  SucceedsAfterRefusals([] { return CStringPool::GetStringRef(u"ALLOC-variant"); },
                        "joins a group");
  // Sixteen variants fill a group vector: the seventeenth makes it grow.
  std::vector<CPPoolString> variants;
  for (int mask = 0; mask < 16; ++mask) {
    std::u16string text = u"abcde";
    for (int bit = 0; bit < 4; ++bit) {
      text[bit] = static_cast<char16_t>(text[bit] - ((mask >> bit) & 1) * 32);
    }
    variants.emplace_back(text.c_str());
  }
  SucceedsAfterRefusals([] { return CStringPool::GetStringRef(u"abcdE"); }, "group grows");
  SucceedsAfterRefusals([] { return CStringPool::GetStringRef(U8("alloc-utf8")); }, "UTF-8");
  SucceedsAfterRefusals(
      [] {
        FixedSubmitter submitter(u"alloc-submitted", 15);
        return CStringPool::GetStringRef(&submitter);
      },
      "submitter");
}

// Writes "level file line category message" lines to the standard error (the messages are
// ASCII).
void StderrLogger(_qefDebugLevel level, qefWChar const * category, char const * file, int line,
                  qefWChar const * format, std::va_list arguments) {
  qefWChar message[256];
  VORX::String::_vsnwprintf(message, 256, format, arguments);
  std::string const text =
      std::to_string(level) + " " + (file ? file : "") + " " + std::to_string(line) + " " +
      vorx::test::Narrow(category ? category : u"") + " " + vorx::test::Narrow(message) + "\n";
  if (write(2, text.data(), text.size()) < 0) {
    std::_Exit(3);
  }
}

TEST(StringPool, WritesItsDiagnosisWhenTheLibraryIsUnloaded) {
  // A child holds one string outside the pool and ends, unloading the library.
  EXPECT_EXIT(
      {
        new CPPoolString(u"still-held-at-unload");
        CPPoolString(u"not-held-at-unload");
        VORX::Develop::SetExternalLogger(&StderrLogger);
        std::exit(0);
      },
      testing::ExitedWithCode(0),
      "^8 cstringpool 2956 VORX SPool ClearTable: Diagnosis started\n"
      "8 cstringpool 2958 VORX SPool ClearTable: diagnosis done, 1 items still referenced\n$");
}

} // namespace
