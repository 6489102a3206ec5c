#include <gtest/gtest.h>

#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "core/notify/NotificationCenter.h"
#include "core/settings/Settings.h"
#include "platform/linux/settings/JsonFileStore.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void writeFile(const fs::path& path, const std::string& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// The names of the files in `folder` whose names start with `prefix`.
std::vector<std::string> filesStartingWith(const fs::path& folder, const std::string& prefix) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with(prefix)) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> writerCommand(const fs::path& file, const std::string& prefix, int count, int valueSize = 8) {
  return {WRENHAVEN_SETTINGS_WRITER_PATH, file.string(), prefix, std::to_string(count), std::to_string(valueSize)};
}

// What a writer child answers when it could not give up the superuser's powers over files.
constexpr int kCannotDropPowers = 126;

// A settings writer running as a child process. `limit` runs in the child before the program
// starts (only calls that are safe between fork and exec), to make its writes fail.
class Writer {
 public:
  explicit Writer(const std::vector<std::string>& command, const std::function<void()>& limit = [] {}) {
    std::vector<char*> argv;
    for (const auto& argument : command) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
      limit();
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
  }
  ~Writer() {
    if (pid_ > 0) exitStatus();
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // Waits for the writer to end: its exit status, or 128 + the signal that ended it.
  int exitStatus() {
    int status = 0;
    if (pid_ > 0 && ::waitpid(pid_, &status, 0) == pid_) {
      pid_ = -1;
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return status_;
  }

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

class JsonFileStoreTest : public testing::Test {
 protected:
  test::TempDir temp{"wrenhaven-settings"};
  fs::path folder = temp.path() / "wrenhaven";
  fs::path file = folder / "settings.json";
  JsonFileStore store{file};
};

TEST_F(JsonFileStoreTest, EveryValueTypeRoundTripsThroughTheFileAndStaysApart) {
  EXPECT_FALSE(store.object("missing").has_value()) << "no file yet reads as empty";

  const std::vector<std::pair<std::string, StoreValue>> values = {
      {"flag", StoreValue::boolean(true)},
      {"off", StoreValue::boolean(false)},
      {"ratio", StoreValue::number(0.25)},
      {"count", StoreValue::fromJson(42)},
      {"text", StoreValue::string(R"([{"a":1}])")},
      {"blob", StoreValue::data(R"([{"a":1}])")},
      {"emptyBlob", StoreValue::data("")},
      {"names", StoreValue::stringArray({"a", "b"})},
      {"mixed", StoreValue::fromJson(nlohmann::json::array({1, "two", nullptr}))},
      {"map", StoreValue::fromJson({{"aa-bb", "connected"}, {"nested", {{"$data", "x"}}}})},
      {"lookalike", StoreValue::fromJson({{"$data", "not data"}})},
      {"dollars", StoreValue::fromJson({{"$$x", 1}, {"$y", 2}})},
  };
  JsonFileStore::Changes changes;
  for (const auto& [key, value] : values) changes.emplace_back(key, value);
  ASSERT_TRUE(store.write(changes));
  EXPECT_TRUE(fs::is_regular_file(file)) << "the folder is created";

  JsonFileStore fresh(file);  // reads the file, not a cache
  for (const auto& [key, value] : values) {
    const auto read = fresh.object(key);
    ASSERT_TRUE(read.has_value()) << key;
    EXPECT_EQ(*read, value) << key;
    EXPECT_EQ(read->kind(), value.kind()) << key;
  }
  EXPECT_EQ(fresh.object("blob")->asString(), std::nullopt);
  EXPECT_EQ(fresh.object("text")->asData(), nullptr);

  // The file is plain JSON that the other program can read: data wrapped, everything else as is.
  const auto document = nlohmann::json::parse(readFile(file));
  EXPECT_EQ(document["blob"], (nlohmann::json{{"$data", R"([{"a":1}])"}}));
  EXPECT_EQ(document["text"], R"([{"a":1}])");
  EXPECT_EQ(document["names"], nlohmann::json::array({"a", "b"}));
  EXPECT_EQ(document["map"]["aa-bb"], "connected");

  // Removing and replacing in one write.
  ASSERT_TRUE(store.write({{"flag", std::nullopt}, {"ratio", StoreValue::string("changed")}, {"absent", std::nullopt}}));
  EXPECT_FALSE(fresh.object("flag").has_value());
  EXPECT_EQ(fresh.object("ratio"), StoreValue::string("changed"));
  EXPECT_EQ(fresh.object("names"), StoreValue::stringArray({"a", "b"}));
}

TEST_F(JsonFileStoreTest, ReadsSeeWritesOfAnotherStoreAndAnotherProcessAtOnce) {
  JsonFileStore other(file);
  // Values of one size written in quick succession: the size stays the same, and where the file
  // system's times are coarse they can too.
  for (int round = 0; round < 50; ++round) {
    const std::string value = "value-" + std::to_string(round % 10);
    other.set("key", StoreValue::string(value));
    ASSERT_EQ(store.object("key"), StoreValue::string(value)) << "round " << round;
  }
  other.set("key", std::nullopt);
  EXPECT_FALSE(store.object("key").has_value());

  ASSERT_EQ(Writer(writerCommand(file, "child.", 3)).exitStatus(), 0);
  EXPECT_EQ(store.object("child.2"), StoreValue::string("vvvvvvv2"));

  // An edit in place by some other tool (same inode) is seen too.
  writeFile(file, R"({"key": "edited"})");
  EXPECT_EQ(store.object("key"), StoreValue::string("edited"));
  EXPECT_FALSE(store.object("child.2").has_value());

  fs::remove(file);
  EXPECT_FALSE(store.object("key").has_value());
}

TEST_F(JsonFileStoreTest, FilesThatAreNotAJsonObjectReadAsEmptyAndAreKeptBesideOnTheNextWrite) {
  const std::vector<std::string> unreadable = {
      "not json at all",
      R"({"devices": {"$data": "[{\"address\": \"aa\"}]"}, "pinInput": tr)",  // cut short
      R"(["an", "array"])",
      R"("a string")",
      std::string("\x00\xff\xfe{\"a\": 1}", 11),
  };
  for (const auto& bytes : unreadable) {
    fs::remove_all(folder);
    writeFile(file, bytes);
    EXPECT_FALSE(store.object("pinInput").has_value());
    EXPECT_FALSE(store.object("a").has_value());

    ASSERT_TRUE(store.write({{"pinInput", StoreValue::boolean(false)}}));
    EXPECT_EQ(store.object("pinInput"), StoreValue::boolean(false));
    EXPECT_EQ(nlohmann::json::parse(readFile(file)), (nlohmann::json{{"pinInput", false}}));
    const auto kept = filesStartingWith(folder, "settings.json.unreadable-");
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(readFile(folder / kept[0]), bytes);
  }

  // Unreadable again within the same second: the earlier copy is not overwritten.
  writeFile(file, "garbage one");
  ASSERT_TRUE(store.write({{"a", StoreValue::boolean(true)}}));
  writeFile(file, "garbage two");
  ASSERT_TRUE(store.write({{"b", StoreValue::boolean(true)}}));
  std::vector<std::string> keptBytes;
  for (const auto& name : filesStartingWith(folder, "settings.json.unreadable-")) {
    keptBytes.push_back(readFile(folder / name));
  }
  std::sort(keptBytes.begin(), keptBytes.end());
  EXPECT_EQ(keptBytes, (std::vector<std::string>{unreadable.back(), "garbage one", "garbage two"}));
  EXPECT_EQ(store.object("b"), StoreValue::boolean(true));
  EXPECT_FALSE(store.object("a").has_value()) << "nothing is read out of an unreadable file";

  // An empty file has nothing to keep: it is simply an empty document.
  fs::remove_all(folder);
  writeFile(file, "");
  ASSERT_TRUE(store.write({{"a", StoreValue::boolean(true)}}));
  EXPECT_TRUE(filesStartingWith(folder, "settings.json.unreadable-").empty());
}

TEST_F(JsonFileStoreTest, ProcessesAndThreadsWritingDifferentKeysAtOnceLoseNothing) {
  constexpr int perWriter = 60;
  Writer first(writerCommand(file, "first.", perWriter));
  Writer second(writerCommand(file, "second.", perWriter));
  // Two more writers in this process, each with its own store, while readers read.
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
  writing = false;
  reader.join();
  ASSERT_EQ(first.exitStatus(), 0);
  ASSERT_EQ(second.exitStatus(), 0);

  JsonFileStore fresh(file);
  for (int i = 0; i < perWriter; ++i) {
    const std::string n = std::to_string(i);
    EXPECT_TRUE(fresh.object("first." + n).has_value()) << n;
    EXPECT_TRUE(fresh.object("second." + n).has_value()) << n;
    EXPECT_EQ(fresh.object("third." + n), StoreValue::number(i)) << n;
    EXPECT_EQ(fresh.object("fourth." + n), StoreValue::boolean(true)) << n;
  }
  EXPECT_TRUE(filesStartingWith(folder, "settings.json.tmp-").empty());
}

TEST_F(JsonFileStoreTest, AFailedWriteLeavesTheFileAsItWasAndSaysSo) {
  ASSERT_TRUE(store.write({{"kept", StoreValue::string("before")}}));
  const std::string before = readFile(file);

  // The disk fills up: the file size limit stops the temporary file short.
  const int full = Writer(writerCommand(file, "big.", 1, 100000), [] {
    const rlimit limit{4096, 4096};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::signal(SIGXFSZ, SIG_IGN);
  }).exitStatus();
  EXPECT_EQ(full, 1);
  EXPECT_EQ(readFile(file), before);
  EXPECT_TRUE(filesStartingWith(folder, "settings.json.tmp-").empty());

  // The folder is read-only for the writer. The writer keeps this user (it must still reach its
  // program and the file wherever they live) but loses the powers that pass over permissions.
  fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
  const int readOnly = Writer(writerCommand(file, "late.", 1), [] {
    for (const int power : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
      if (::prctl(PR_CAPBSET_DROP, power, 0, 0, 0) != 0 && ::geteuid() == 0) ::_exit(kCannotDropPowers);
    }
  }).exitStatus();
  fs::permissions(folder, fs::perms::owner_all);
  if (readOnly == kCannotDropPowers) GTEST_SKIP() << "the superuser here cannot give up its file powers";
  EXPECT_EQ(readOnly, 1);
  EXPECT_EQ(readFile(file), before);
  EXPECT_EQ(store.object("kept"), StoreValue::string("before"));
  EXPECT_TRUE(filesStartingWith(folder, "settings.json.tmp-").empty());

  // A value that JSON cannot carry is refused without touching the file.
  EXPECT_FALSE(store.write({{"bad", StoreValue::string("\xff\xfe")}, {"kept", std::nullopt}}));
  EXPECT_EQ(readFile(file), before);
}

TEST_F(JsonFileStoreTest, SettingsReadThroughTheFileSeeTheOtherProgramsChanges) {
  NotificationCenter notifications;
  Settings agent(store, notifications, true, nullptr);
  JsonFileStore otherStore(file);
  Settings settingsApp(otherStore, notifications, false, nullptr);

  settingsApp.addDevice("AA:BB:CC:DD:EE:FF", "Sleep Buds");
  ASSERT_EQ(agent.devices().size(), 1u);
  EXPECT_EQ(agent.devices()[0].icon, "earbuds");
  settingsApp.setCallMode(CallModeOption::alwaysHeadphoneMic);
  EXPECT_EQ(agent.callMode(), CallModeOption::alwaysHeadphoneMic);

  // A hand-edited wrong type falls back to the default rather than failing.
  writeFile(file, R"({"pinInput": "yes", "devices": "[]", "callMode": 3})");
  EXPECT_TRUE(agent.boolValue(Keys::pinInput, true));
  EXPECT_TRUE(agent.devices().empty());
  EXPECT_EQ(agent.callMode(), CallModeOption::automatic);
}

}  // namespace
}  // namespace wh::platform
