#include "csv_reader.h"

#include "cli/job_scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace cardo {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using namespace std::string_literals;

using Rows = std::vector<std::vector<std::string>>;

class CsvReaderTest : public ::testing::Test {
 protected:
  Rows Read(const std::string& text) {
    fFolder.Write("t.csv", text);
    fDiagnostics = {};
    CsvReader reader(fFolder.Path() / "t.csv", "t.csv", fDiagnostics);
    Rows rows;
    while (const CsvRow* row = reader.Next()) {
      rows.emplace_back();
      for (std::size_t i = 0; i < row->Size(); ++i) rows.back().emplace_back((*row)[i]);
    }
    return rows;
  }

  [[nodiscard]] std::vector<std::string> Messages() const { return test::Texts(fDiagnostics); }

  test::TemporaryFolder fFolder;
  Diagnostics fDiagnostics;
};

TEST_F(CsvReaderTest, SplitsRecordsIntoFields) {
  EXPECT_THAT(Read("a,b\n1, 2 \n,\n"),
              ElementsAre(ElementsAre("a", "b"), ElementsAre("1", "2"), ElementsAre("", "")));
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(CsvReaderTest, TakesEveryLineEndAndNoneAtTheEnd) {
  const Rows expected = {{"a", "b"}, {"1", "2"}, {"3", "4"}};
  EXPECT_EQ(Read("a,b\n1,2\n3,4"), expected);
  EXPECT_EQ(Read("a,b\r\n1,2\r\n3,4\r\n"), expected);
  EXPECT_EQ(Read("a,b\r1,2\r3,4\r"), expected);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(CsvReaderTest, SkipsBlankLinesButCountsThem) {
  fFolder.Write("t.csv", "a\n\n  \n5\n");
  CsvReader reader(fFolder.Path() / "t.csv", "t.csv", fDiagnostics);
  ASSERT_NE(reader.Next(), nullptr);
  const CsvRow* row = reader.Next();
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->Line(), 4U);
}

TEST_F(CsvReaderTest, UndoesQuotes) {
  EXPECT_THAT(Read("\"a,b\",\"c\"\"d\"\n\" e\",\"two\nlines\"\n"),
              ElementsAre(ElementsAre("a,b", "c\"d"), ElementsAre(" e", "two\nlines")));
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(CsvReaderTest, ToleratesTheMarkOfUtf8) {
  EXPECT_THAT(Read("\xEF\xBB\xBFid,x\n1,2\n"),
              ElementsAre(ElementsAre("id", "x"), ElementsAre("1", "2")));
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(CsvReaderTest, TellsOtherEncodings) {
  EXPECT_THAT(Read("\xFF\xFEi\0d\0"s), IsEmpty());
  EXPECT_THAT(Messages(), ElementsAre("t.csv:1:1: the file is UTF-16, expected UTF-8"));
  EXPECT_THAT(Read("\xFE\xFF\0i\0d"s), IsEmpty());
  EXPECT_THAT(Messages(), ElementsAre("t.csv:1:1: the file is UTF-16, expected UTF-8"));
  EXPECT_THAT(Read("i\0d\0,\0"s), IsEmpty());
  EXPECT_THAT(Messages(), ElementsAre("t.csv:1:1: the file is UTF-16, expected UTF-8"));
  EXPECT_THAT(Read("\xFF\xFE\0\0i\0\0\0"s), IsEmpty());
  EXPECT_THAT(Messages(), ElementsAre("t.csv:1:1: the file is UTF-32, expected UTF-8"));
}

TEST_F(CsvReaderTest, TellsBytesThatAreNoTextAndReadsOn) {
  EXPECT_THAT(Read("a,b\n1,\xE9\n2,\x01\n3,4\n"),
              ElementsAre(ElementsAre("a", "b"), ElementsAre("3", "4")));
  EXPECT_THAT(Messages(),
              ElementsAre("t.csv:2:3: expected UTF-8, found the byte 0xE9",
                          "t.csv:3:3: expected text, found the control character 0x01"));
}

TEST_F(CsvReaderTest, CountsColumnsInCharacters) {
  fFolder.Write("t.csv", "\xC3\xA4\xC3\xB6, x ,\"q\"\n");
  CsvReader reader(fFolder.Path() / "t.csv", "t.csv", fDiagnostics);
  const CsvRow* row = reader.Next();
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(ToString(row->PlaceOf(0)), "t.csv:1:1");
  EXPECT_EQ(ToString(row->PlaceOf(1)), "t.csv:1:5");
  EXPECT_EQ(ToString(row->PlaceOf(2)), "t.csv:1:8");
  EXPECT_EQ(ToString(row->PlaceOf(3)), "t.csv:1:11");
}

TEST_F(CsvReaderTest, PlacesFieldsBehindQuotedLineEnds) {
  fFolder.Write("t.csv", "\"a\nb,c\",d\n");
  CsvReader reader(fFolder.Path() / "t.csv", "t.csv", fDiagnostics);
  const CsvRow* row = reader.Next();
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(ToString(row->PlaceOf(1)), "t.csv:2:6");
}

TEST_F(CsvReaderTest, TellsAStrayQuoteAndReadsTheNextLine) {
  EXPECT_THAT(Read("a,b\n1,2\"3\n4,5\n"),
              ElementsAre(ElementsAre("a", "b"), ElementsAre("4", "5")));
  ASSERT_THAT(Messages(), SizeIs(1));
  EXPECT_THAT(Messages()[0], HasSubstr("t.csv:2:4: a quoted field must be quoted as a whole"));
}

TEST_F(CsvReaderTest, TellsAQuoteThatIsNotClosed) {
  EXPECT_THAT(Read("a,b\n1,\"2\n3,4\n"), ElementsAre(ElementsAre("a", "b")));
  EXPECT_THAT(Messages(), ElementsAre("t.csv:2:3: the quote opened here is not closed"));
}

TEST_F(CsvReaderTest, EndsAtARecordWithoutEnd) {
  EXPECT_THAT(Read("a\n1,\"" + std::string(2 * CsvReader::kLongestRecord, 'x')), SizeIs(1));
  ASSERT_THAT(Messages(), SizeIs(1));
  EXPECT_THAT(Messages()[0], HasSubstr("t.csv:2:3: expected records of at most 1048576 bytes"));
}

TEST_F(CsvReaderTest, TakesAFieldOfHalfAMegabyte) {
  const std::string huge(CsvReader::kLongestRecord / 2, 'x');
  EXPECT_THAT(Read("a\n" + huge + "\n"), ElementsAre(ElementsAre("a"), ElementsAre(huge)));
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(CsvReaderTest, ReadsAcrossTheBoundsOfItsBuffer) {
  std::string text = "n,\"quoted, n\"\r\n";
  constexpr int kRows = 100000;
  for (int i = 0; i < kRows; ++i) {
    text += std::to_string(i) + ",\"a," + std::to_string(i) + "\"\r\n";
  }
  const Rows rows = Read(text);
  ASSERT_EQ(rows.size(), kRows + 1U);
  for (int i = 0; i < kRows; ++i) {
    ASSERT_THAT(rows[static_cast<std::size_t>(i) + 1],
                ElementsAre(std::to_string(i), "a," + std::to_string(i)));
  }
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(CsvReaderTest, StopsAtTheLimitOfMistakes) {
  std::string text = "a\n";
  for (int i = 0; i < 100; ++i) text += "\x02\n";
  EXPECT_THAT(Read(text), SizeIs(1));
  EXPECT_THAT(Messages(), SizeIs(Diagnostics::kLimitPerFile));
}

TEST_F(CsvReaderTest, TellsAFolderAndAMissingFile) {
  fFolder.Write("d.csv/inside", "");
  CsvReader folder(fFolder.Path() / "d.csv", "d.csv", fDiagnostics);
  EXPECT_EQ(folder.Next(), nullptr);
  CsvReader missing(fFolder.Path() / "m.csv", "m.csv", fDiagnostics);
  EXPECT_EQ(missing.Next(), nullptr);
  EXPECT_THAT(Messages(),
              ElementsAre("d.csv: is a folder, expected a table",
                          "m.csv: cannot be opened: No such file or directory"));
}

}  // namespace
}  // namespace cardo
