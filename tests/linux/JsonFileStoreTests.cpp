#include <gtest/gtest.h>

#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <set>
#include <thread>

#include "core/settings/Settings.h"
#include "platform/linux/settings/JsonFileStore.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

namespace fs = std::filesystem;
using test::readFile;

// What a writer child answers when it could not give up the superuser's powers over files.
constexpr int kCannotDropPowers = 126;

void writeFile(const fs::path& path, const std::string& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// The settings writer tool as a child process, writing `count` keys `prefix`0... into `file`.
// `limit` runs in the child before the program starts (only calls that are safe after fork).
int writer(const fs::path& file, const std::string& prefix, int count, const std::function<void()>& limit = [] {},
           int valueSize = 8) {
  const std::vector<std::string> command = {WRENHAVEN_SETTINGS_WRITER_PATH, file.string(), prefix,
                                            std::to_string(count), std::to_string(valueSize)};
  std::vector<char*> argv;
  for (const auto& argument : command) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    limit();
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class JsonFileStoreTest : public testing::Test {
 protected:
  // The contents of the files in the folder whose names start with `prefix`.
  std::multiset<std::string> files(const std::string& prefix) const {
    std::multiset<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder)) {
      if (entry.path().filename().string().starts_with(prefix)) found.insert(readFile(entry.path()));
    }
    return found;
  }

  test::TempDir temp{"wrenhaven-settings"};
  fs::path folder = temp.path() / "wrenhaven";
  fs::path file = folder / "settings.json";
  JsonFileStore store{file};
};

TEST_F(JsonFileStoreTest, EveryValueTypeRoundTripsThroughPlainJsonAndStaysApart) {
  EXPECT_FALSE(store.object("missing").has_value()) << "no file yet reads as empty";
  const std::vector<std::pair<std::string, StoreValue>> values = {
      {"flag", StoreValue::boolean(true)},     {"ratio", StoreValue::number(0.25)},
      {"text", StoreValue::string("[1]")},     {"blob", StoreValue::data("[1]")},
      {"emptyBlob", StoreValue::data("")},     {"names", StoreValue::stringArray({"a", "b"})},
      {"lookalike", StoreValue::fromJson({{"$data", "not data"}})},
      {"map", StoreValue::fromJson({{"aa-bb", "connected"}, {"$$x", {{"$data", "x"}}}})}};
  ASSERT_TRUE(store.write(JsonFileStore::Changes(values.begin(), values.end())));
  JsonFileStore fresh(file);  // reads the file, not a cache
  for (const auto& [key, value] : values) {
    EXPECT_EQ(fresh.object(key), value) << key;
    EXPECT_EQ(fresh.object(key)->kind(), value.kind()) << key;
  }
  const auto document = nlohmann::json::parse(readFile(file));
  EXPECT_EQ(document["blob"], (nlohmann::json{{"$data", "[1]"}})) << "data is wrapped, everything else is plain";
  EXPECT_EQ(document["names"], nlohmann::json::array({"a", "b"}));
  ASSERT_TRUE(store.write({{"flag", std::nullopt}, {"ratio", StoreValue::string("changed")}}));
  EXPECT_FALSE(fresh.object("flag").has_value());
  EXPECT_EQ(fresh.object("ratio"), StoreValue::string("changed"));
}

TEST_F(JsonFileStoreTest, ReadsSeeWritesOfAnotherStoreAnotherProcessAndAnEditInPlaceAtOnce) {
  JsonFileStore other(file);
  // Values of one size in quick succession: size and (on coarse file systems) times stay the same.
  for (int round = 0; round < 50; ++round) {
    other.set("key", StoreValue::string("value-" + std::to_string(round % 10)));
    ASSERT_EQ(store.object("key"), StoreValue::string("value-" + std::to_string(round % 10))) << round;
  }
  ASSERT_EQ(writer(file, "child.", 3), 0);
  EXPECT_EQ(store.object("child.2"), StoreValue::string("vvvvvvv2"));
  writeFile(file, R"({"key": "edited"})");
  EXPECT_EQ(store.object("key"), StoreValue::string("edited"));
  fs::remove(file);
  EXPECT_FALSE(store.object("key").has_value());
}

TEST_F(JsonFileStoreTest, AnUnreadableFileReadsAsEmptyAndIsKeptBesideOnTheNextWrite) {
  for (const std::string& bytes : {std::string("not json"), std::string(R"({"pinInput": tr)"),
                                  std::string(R"(["an", "array"])"), std::string("\x00\xff{\"a\": 1}", 9)}) {
    fs::remove_all(folder);
    writeFile(file, bytes);
    EXPECT_FALSE(store.object("a").has_value());
    ASSERT_TRUE(store.write({{"pinInput", StoreValue::boolean(false)}}));
    EXPECT_EQ(nlohmann::json::parse(readFile(file)), (nlohmann::json{{"pinInput", false}}));
    EXPECT_EQ(files("settings.json.unreadable-"), std::multiset<std::string>{bytes});
  }
  writeFile(file, "garbage again within the same second");  // the earlier copy is not overwritten
  ASSERT_TRUE(store.write({{"b", StoreValue::boolean(true)}}));
  EXPECT_EQ(files("settings.json.unreadable-").size(), 2u);
  writeFile(file, "");  // an empty file is an empty document: nothing to keep
  ASSERT_TRUE(store.write({{"a", StoreValue::boolean(true)}}));
  EXPECT_EQ(files("settings.json.unreadable-").size(), 2u);
}

TEST_F(JsonFileStoreTest, ProcessesAndThreadsWritingDifferentKeysAtOnceLoseNothing) {
  constexpr int perWriter = 60;
  std::thread first([&] { EXPECT_EQ(writer(file, "first.", perWriter), 0); });
  JsonFileStore third(file);
  std::atomic<bool> writing{true};
  std::thread reader([&] {
    while (writing) (void)store.object("third.0");
  });
  std::thread thirdWriter([&] {
    for (int i = 0; i < perWriter; ++i) third.set("third." + std::to_string(i), StoreValue::number(i));
  });
  for (int i = 0; i < perWriter; ++i) store.set("fourth." + std::to_string(i), StoreValue::boolean(true));
  thirdWriter.join();
  first.join();
  writing = false;
  reader.join();
  JsonFileStore fresh(file);
  for (int i = 0; i < perWriter; ++i) {
    for (const char* prefix : {"first.", "third.", "fourth."}) {
      EXPECT_TRUE(fresh.object(prefix + std::to_string(i)).has_value()) << prefix << i;
    }
  }
  EXPECT_TRUE(files("settings.json.tmp-").empty());
}

TEST_F(JsonFileStoreTest, AFailedWriteLeavesTheFileAsItWasAndSaysSo) {
  ASSERT_TRUE(store.write({{"kept", StoreValue::string("before")}}));
  const std::string before = readFile(file);
  // The disk fills up: the file size limit stops the temporary file short.
  EXPECT_EQ(writer(file, "big.", 1, [] {
              const rlimit limit{4096, 4096};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              ::signal(SIGXFSZ, SIG_IGN);
            }, 100000), 1);
  EXPECT_EQ(readFile(file), before);
  // A value that JSON cannot carry is refused without touching the file.
  EXPECT_FALSE(store.write({{"bad", StoreValue::string("\xff\xfe")}, {"kept", std::nullopt}}));
  EXPECT_EQ(readFile(file), before);

  // The folder is read-only for the writer. The writer keeps this user (it must still reach its
  // program and the file wherever they live) but loses the powers that pass over permissions.
  fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
  const int readOnly = writer(file, "late.", 1, [] {
    for (const int power : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
      if (::prctl(PR_CAPBSET_DROP, power, 0, 0, 0) != 0 && ::geteuid() == 0) ::_exit(kCannotDropPowers);
    }
  });
  fs::permissions(folder, fs::perms::owner_all);
  if (readOnly == kCannotDropPowers) GTEST_SKIP() << "the superuser here cannot give up its file powers";
  EXPECT_EQ(readOnly, 1);
  EXPECT_EQ(readFile(file), before);
  EXPECT_TRUE(files("settings.json.tmp-").empty());
}

TEST_F(JsonFileStoreTest, SettingsReadThroughTheFileSeeTheOtherProgramsChangesAndSurviveHandEdits) {
  NotificationCenter notifications;
  Settings agent(store, notifications, true, nullptr);
  JsonFileStore otherStore(file);
  Settings settingsApp(otherStore, notifications, false, nullptr);
  settingsApp.addDevice("AA:BB:CC:DD:EE:FF", "Sleep Buds");
  settingsApp.setCallMode(CallModeOption::alwaysHeadphoneMic);
  ASSERT_EQ(agent.devices().size(), 1u);
  EXPECT_EQ(agent.callMode(), CallModeOption::alwaysHeadphoneMic);
  writeFile(file, R"({"pinInput": "yes", "devices": "[]", "callMode": 3})");
  EXPECT_TRUE(agent.boolValue(Keys::pinInput, true));
  EXPECT_TRUE(agent.devices().empty());
  EXPECT_EQ(agent.callMode(), CallModeOption::automatic);
}

}  // namespace
}  // namespace wh::platform
