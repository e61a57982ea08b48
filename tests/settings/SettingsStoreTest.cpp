#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <latch>
#include <thread>
#include <tuple>

#include "common/Error.h"
#include "common/Strings.h"
#include "settings/Database.h"
#include "settings/SettingsStore.h"
#include "settings/TWSettings.h"
#include "tests/support/TestSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::ErrorFrom;

class SettingsStoreTest : public ::testing::Test {
 protected:
  std::string Path() const { return dir_ / "settings.db"; }
  // A second connection, as the console or a helper program has.
  void RawSql(const std::string& sql) { Database(Path()).Execute(sql); }

  test::TempDir dir_;
};

TEST_F(SettingsStoreTest, ReadsCreateNothingTheFirstWriteAPrivateFileAndAFileNotOursIsRefused) {
  TWSettings settings(Path());
  EXPECT_TRUE(settings.General().Options().EventLogEnabled());
  EXPECT_TRUE(settings.General().Console().AnswersAfter(0).empty());
  EXPECT_FALSE(fs::exists(Path())) << "reading must not create the file";

  settings.General().Options().DetailedLogging(true);
  EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(Path()).permissions() & fs::perms::all);

  const auto refusal = [&] { return ErrorFrom([&] { TWSettings(Path()).General().JobCount(); }).Description; };
  RawSql("PRAGMA user_version = 99");
  EXPECT_NE(std::string::npos, refusal().find(" has schema version 99, newer than this program knows"));
  RawSql("PRAGMA application_id = 12345");
  EXPECT_EQ("Settings file " + Path() + " is not a Tarnwick settings file", refusal());
}

TEST_F(SettingsStoreTest, AHandEditedValueOfTheWrongKindIsAClearError) {
  TWSettings settings(Path());
  settings.General().Options().DetailedLogging(true);
  RawSql("UPDATE settings SET value = 'maybe' WHERE key = 'options.detailed_logging'");
  EXPECT_EQ("Setting options.detailed_logging holds \"maybe\", which is not true or false",
            ErrorFrom([&] { settings.General().Options().DetailedLogging(); }).Description);

  // Forms a person would write by hand are understood, and every read sees what another program
  // wrote just before.
  RawSql("UPDATE settings SET value = 'On' WHERE key = 'options.detailed_logging'");
  EXPECT_TRUE(settings.General().Options().DetailedLogging());
  RawSql("UPDATE settings SET value = 'no' WHERE key = 'options.detailed_logging'");
  EXPECT_FALSE(settings.General().Options().DetailedLogging());
  RawSql("INSERT INTO settings VALUES ('mail.port', ' 2525 ')");
  EXPECT_EQ(2525, settings.General().MailSettings().Port());
  RawSql("UPDATE settings SET value = 3000000000 WHERE key = 'mail.port'");
  EXPECT_EQ(errnum::TypeMismatch, ErrorFrom([&] { settings.General().MailSettings().Port(); }).Number);
  RawSql("INSERT INTO settings VALUES ('mail.security', 'ssl')");
  EXPECT_NE(std::string::npos,
            ErrorFrom([&] { settings.General().MailSettings().Security(); }).Description.find("\"ssl\""));

  clsJob job = settings.General().AddJob("Nightly", "Nightly");
  RawSql("UPDATE jobs SET scheduled_time = 'nine' WHERE name = 'Nightly'");
  EXPECT_EQ(errnum::TypeMismatch, ErrorFrom([&] { job.ScheduledTime(); }).Number);
  RawSql("UPDATE jobs SET run_status = '-1e19' WHERE name = 'Nightly'");
  EXPECT_EQ(errnum::TypeMismatch, ErrorFrom([&] { job.RunStatus(); }).Number) << "beyond every whole number";
  RawSql("UPDATE jobs SET run_status = 40000");
  EXPECT_EQ(errnum::Overflow, ErrorFrom([&] { job.RunStatus(); }).Number);
}

TEST(SettingKeysTest, TypedNumbersWithinTheRangeAreTakenAndThoseBeyondEveryIntegerRefused) {
  EXPECT_EQ("invalid number \"22222222222222222251\" for console.answers_start (expected a whole number from 0 to "
            "2147483647)",
            ValidateSettingText(SettingKeyOf("console.answers_start"), "22222222222222222251"));
  const SettingKey& port = SettingKeyOf("mail.port");
  for (const char* bad : {"-1e999", "25.5"}) EXPECT_TRUE(ValidateSettingText(port, bad)) << bad;
  for (const char* good : {" 2.5e1 ", "1", "65535"}) EXPECT_FALSE(ValidateSettingText(port, good)) << good;
  EXPECT_FALSE(ValidateSettingText(SettingKeyOf("templates.reminder_body"), "a\r\nb")) << "a text of lines";
}

TEST(SettingKeysTest, TextIsUtf8AndOneLineWhereOneLineIsMeant) {
  const std::string notUtf8 = "x is not UTF-8 text (byte ";
  const std::string oneLine = "x must be one line of text, but holds the control character ";
  // A text, the form it must have, and what is wrong with it.
  const std::vector<std::tuple<std::string, TextForm, std::optional<std::string>>> cases = {
      {"Caf\xC3\xA9 \xE2\x9C\x93 \xF0\x9F\x98\x80", TextForm::Line, std::nullopt},
      {"\xC0\xAF", TextForm::Line, notUtf8 + "0xC0 at position 1)"},            // an overlong "/"
      {"a\xED\xA0\x80", TextForm::Line, notUtf8 + "0xED at position 2)"},       // a surrogate
      {"\xF4\x90\x80\x80", TextForm::Line, notUtf8 + "0xF4 at position 1)"},    // past U+10FFFF
      {"ab\xE2\x9C", TextForm::Lines, notUtf8 + "0xE2 at position 3)"},          // cut short
      {"\xC3\xA9\tb", TextForm::Line, oneLine + "U+0009 at character 2"},
      {"a\xC2\x85", TextForm::Line, oneLine + "U+0085 at character 2"},
      {"a\tb\r\nc\nd\re", TextForm::Lines, std::nullopt},
      {"a\r\nb;c", TextForm::List, std::nullopt},
      {"a\x7F", TextForm::List,
       "x holds the control character U+007F at character 2 (only tabs and line breaks may be used)"},
  };
  for (const auto& [text, form, problem] : cases) EXPECT_EQ(problem, TextProblem(text, form, "x")) << text;
  EXPECT_EQ("a\r\nb\r\nc\r\n\r\n", CrLfLineEnds("a\nb\rc\r\n\n"));
}

TEST_F(SettingsStoreTest, FirstWritersAtTheSameMomentAllSucceed) {
  // Several programs (twctl commands, say) write to a settings file that does not exist yet, each
  // through a connection of its own; every one of them creates or finds the schema.
  constexpr int kWriters = 4;
  std::latch start(kWriters);
  std::vector<std::thread> writers;
  for (int i = 0; i < kWriters; ++i) {
    writers.emplace_back([&, i] {
      TWSettings settings(Path());
      start.arrive_and_wait();
      EXPECT_NO_THROW(settings.General().AddJob("Job " + std::to_string(i), "job" + std::to_string(i)));
    });
  }
  for (auto& writer : writers) writer.join();
  EXPECT_EQ(kWriters, TWSettings(Path()).General().JobCount());
}

TEST_F(SettingsStoreTest, ATransactionLandsWhollyAndOneThatMayWaitIsSkippedWhileAnotherProgramHoldsTheFile) {
  TWSettings settings(Path());
  auto general = settings.General();
  EXPECT_THROW(settings.Store().InTransaction([&] {
    general.AddJob("Half", "Half").Sources({"/etc"});
    throw TWError(1, "stop");
  }),
               TWError);
  EXPECT_EQ(0, general.JobCount());
  settings.Store().InTransaction([&] {
    general.AddJob("Whole", "Whole").Sources({"/etc", "/srv"});  // its own transaction, joining the outer one
  });
  EXPECT_EQ((std::vector<std::string>{"/etc", "/srv"}), general.JobByName("Whole").Sources());

  auto console = general.Console();
  const auto heartbeat = [&] { console.LogLastChanged(45321.5); };
  {
    Database other(Path());
    other.Execute("BEGIN IMMEDIATE");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(settings.Store().InTransactionIfFree(heartbeat));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << "without waiting";
    other.Execute("ROLLBACK");
  }
  EXPECT_EQ(0, console.LogLastChanged());
  settings.Store().InTransaction([&] { EXPECT_TRUE(settings.Store().InTransactionIfFree(heartbeat)); });
  EXPECT_EQ(45321.5, console.LogLastChanged());

  // The console's requests are taken once; its answers are numbered in the order they came.
  console.TestBackupRequested(true);
  EXPECT_TRUE(console.TestBackupRequested());
  EXPECT_FALSE(console.TestBackupRequested()) << "reading a request takes it";
  console.AppendTestLine("Performing test backup...");
  console.AppendTestLine("RESULT: Backup process completed normally");
  EXPECT_EQ((std::vector<std::pair<int64_t, std::string>>{{2, "RESULT: Backup process completed normally"}}),
            console.AnswersAfter(1));
}

}  // namespace
}  // namespace tw
