// Values of the settings store as text: what an administrator types for `twctl config set`, and
// what a hand-edited or older settings file may hold where the service expects a Boolean, a
// number or a date. The first byte picks the setting (a keyed one or a column of a job), the
// rest is the value. Besides not failing: a value the console accepts reads back as a value it
// accepts, and the platform's number text of a number reads back as a number.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/Date.h"
#include "common/Error.h"
#include "common/NumberText.h"
#include "fuzz/FuzzSupport.h"
#include "settings/Database.h"
#include "settings/SettingKeys.h"
#include "settings/SettingsStore.h"
#include "settings/TWSettings.h"

namespace {

using namespace tw;

struct Fixture {
  fuzz::ScratchFolder folder{"tw-fuzz-settings"};
  TWSettings settings{folder / "settings.db"};
  int64_t job = 0;
  std::unique_ptr<Database> raw;  // a second connection, as a person with the sqlite3 shell

  Fixture() {
    job = settings.General().AddJob("Nightly", "Nightly").Id();
    raw = std::make_unique<Database>(settings.Path());
  }
};

// Every text form the service and the console read numbers, Booleans, dates and times with.
void ParseEveryWay(std::string_view text) {
  ParseBooleanWord(text);
  try {
    TextToBool(text);
  } catch (const TWError&) {
  }
  try {
    TextToInt32(text);
  } catch (const TWError&) {
  }
  try {
    ToInt32(LeadingNumber(text));
  } catch (const TWError&) {
  }
  for (const auto number : {ParseNumber(text), std::optional<double>(LeadingNumber(text))}) {
    if (!number) continue;
    const std::string written = NumberToText(*number);
    // The number text of a number reads back as a number that writes the same text.
    const auto again = ParseNumber(written);
    if (!again || NumberToText(*again) != written) fuzz::PropertyFailed("a number's text does not read back");
    IsoText(*number);
    DefaultDateText(*number);
    ShortTime(*number);
  }
  if (const auto time = ParseTimeOfDay(text)) LongTime(*time);
  if (const auto date = ParseIsoDate(text)) {
    if (IsoText(*date).compare(0, text.size(), text) != 0) {
      fuzz::PropertyFailed("a date does not show as it was typed");
    }
  }
}

// A keyed setting: as typed on the console, then as stored by hand.
void KeyedSetting(Fixture& f, const SettingKey& key, std::string_view text) {
  SettingsStore& store = f.settings.Store();
  if (!ValidateSettingText(key, text)) {
    store.WriteFromText(key.key, text);
    if (ValidateSettingText(key, store.ReadAsText(key.key))) {
      fuzz::PropertyFailed("an accepted value does not read back as an acceptable one");
    }
  }
  f.raw->Prepare("INSERT OR REPLACE INTO settings (key, value) VALUES (?1, ?2)").BindText(1, key.key).BindText(2, text).Run();
  try {
    store.ReadAsText(key.key);
  } catch (const TWError&) {
    // a value that cannot be meant is refused with a message naming it
  }
}

// A column of the job's row, as the object model reads it.
void JobColumn(Fixture& f, size_t index, std::string_view text) {
  struct Column {
    const char* name;
    void (*read)(clsJob&);
  };
  static const Column kColumns[] = {
      {"suspended", [](clsJob& j) { j.Suspended(); }},
      {"scheduled_time", [](clsJob& j) { IsoText(j.ScheduledTime()); }},
      {"schedule_last_fired", [](clsJob& j) { MinutesBetween(j.ScheduleLastFired(), 46349.875); }},
      {"next_run_time", [](clsJob& j) { ShortDate(j.NextRunTime()); }},
      {"run_status", [](clsJob& j) { j.RunStatus(); }},
      {"backup_method", [](clsJob& j) { j.BackupMethod(); }},
      {"backup_mode", [](clsJob& j) { j.BackupMode(); }},
      {"eject", [](clsJob& j) { j.Eject(); }},
      {"backup_timeout", [](clsJob& j) { j.BackupTimeout(); }},
      {"print_report", [](clsJob& j) { j.JobNotification().PrintReport(); }},
      {"reminder_time", [](clsJob& j) { ShortTime(j.JobNotification().ReminderTime()); }},
      {"reminder_last_fired", [](clsJob& j) { IsoText(j.JobNotification().ReminderLastFired()); }},
      {"maintenance_last_fired", [](clsJob& j) { IsoText(j.JobNotification().MaintenanceLastFired()); }},
      {"run_start_time", [](clsJob& j) { SecondsBetween(j.RunStartTime(), 46349.875); }},
      {"run_eject", [](clsJob& j) { j.RunEject(); }},
  };
  const Column& column = kColumns[index % std::size(kColumns)];
  f.raw->Prepare(std::string("UPDATE jobs SET ") + column.name + " = ?2 WHERE id = ?1").BindInt(1, f.job).BindText(2, text).Run();
  clsJob job(f.settings.General().JobByIndex(0));
  try {
    column.read(job);
  } catch (const TWError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Fixture fixture;
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);

  ParseEveryWay(text);
  const auto& keys = AllSettingKeys();
  const size_t pick = data[0];
  if (pick < keys.size()) {
    KeyedSetting(fixture, keys[pick], text);
  } else {
    JobColumn(fixture, pick - keys.size(), text);
  }
  return 0;
}
