#include <gtest/gtest.h>

#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <set>
#include <thread>

#include "platform/linux/settings/JsonFileStore.h"
#include "support/RigRequired.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::writeFile;

// What a writer child answers when it could not give up the superuser's powers over files.
constexpr int kCannotDropPowers = 126;

// The settings writer tool as a child process, writing `count` keys `prefix`0... into `file`.
// `limit` runs in the child before the program starts (only calls that are safe after fork).
int writer(const fs::path& file, const std::string& prefix, int count, const std::function<void()>& limit = [] {},
           int valueSize = 8) {
  const std::string counts[] = {std::to_string(count), std::to_string(valueSize)};
  const char* argv[] = {WRENHAVEN_SETTINGS_WRITER_PATH, file.c_str(), prefix.c_str(), counts[0].c_str(),
                        counts[1].c_str(), nullptr};
  const pid_t pid = ::fork();
  if (pid == 0) {
    limit();
    ::execv(argv[0], const_cast<char**>(argv));
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
    for (const auto& entry : fs::directory_iterator(file.parent_path())) {
      if (entry.path().filename().string().starts_with(prefix)) found.insert(readFile(entry.path()));
    }
    return found;
  }

  test::TempDir temp{"wrenhaven-settings"};
  fs::path file = temp.path() / "wrenhaven" / "settings.json";
  JsonFileStore store{file};
};

TEST_F(JsonFileStoreTest, ValuesRoundTripAndReadsSeeEveryOtherWriterAtOnce) {
  EXPECT_FALSE(store.object("missing").has_value()) << "no file yet reads as empty";
  const std::vector<std::pair<std::string, StoreValue>> values = {
      {"flag", StoreValue::boolean(true)},     {"ratio", StoreValue::number(0.25)},
      {"text", StoreValue::string("[1]")},     {"blob", StoreValue::data("[1]")},
      {"emptyBlob", StoreValue::data("")},     {"names", StoreValue::stringArray({"a", "b"})},
      {"lookalike", StoreValue::fromJson({{"$data", "not data"}})},
      {"map", StoreValue::fromJson({{"aa-bb", "connected"}, {"$$x", {{"$data", "x"}}}})}};
  ASSERT_TRUE(store.write(JsonFileStore::Changes(values.begin(), values.end())));
  JsonFileStore other(file);
  for (const auto& [key, value] : values) EXPECT_EQ(other.object(key), value) << key;
  const auto document = nlohmann::json::parse(readFile(file));
  EXPECT_EQ(document["blob"], (nlohmann::json{{"$data", "[1]"}})) << "data is wrapped, everything else is plain";
  EXPECT_EQ(document["names"], nlohmann::json::array({"a", "b"}));
  ASSERT_TRUE(store.write({{"flag", std::nullopt}}));
  EXPECT_FALSE(other.object("flag").has_value());
  // Values of one size in quick succession: size and (on coarse file systems) times stay the same.
  for (int round = 0; round < 50; ++round) {
    other.set("key", StoreValue::string("value-" + std::to_string(round % 10)));
    ASSERT_EQ(store.object("key"), StoreValue::string("value-" + std::to_string(round % 10))) << round;
  }
  ASSERT_EQ(writer(file, "child.", 3), 0);
  EXPECT_EQ(store.object("child.2"), StoreValue::string("vvvvvvv2"));
  writeFile(file, R"({"key": "edited"})");
  EXPECT_EQ(store.object("key"), StoreValue::string("edited"));
}

TEST_F(JsonFileStoreTest, AnUnreadableFileReadsAsEmptyAndIsKeptBesideOnTheNextWrite) {
  // A document of so many levels of objects and arrays; 100000 would exhaust the stack of a reader
  // that follows them level by level.
  const auto nested = [](std::size_t levels) {
    return R"({"a": )" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
  };
  writeFile(file, nested(maxSettingsDepth));
  EXPECT_TRUE(store.object("a").has_value());
  const std::string unreadable[] = {"not json", R"({"pinInput": tr)", R"(["an", "array"])", {"\x00\xff{\"a\": 1}", 9},
                                    nested(maxSettingsDepth + 1), nested(100000)};
  for (const auto& bytes : unreadable) {
    fs::remove_all(file.parent_path());
    writeFile(file, bytes);
    EXPECT_FALSE(store.object("a").has_value());
    ASSERT_TRUE(store.write({{"pinInput", StoreValue::boolean(false)}}));
    EXPECT_EQ(nlohmann::json::parse(readFile(file)), (nlohmann::json{{"pinInput", false}}));
    EXPECT_EQ(files("settings.json.unreadable-"), std::multiset<std::string>{bytes});
  }
  writeFile(file, "garbage again within the same second");  // the earlier copy is not overwritten
  ASSERT_TRUE(store.write({{"b", StoreValue::boolean(true)}}));
  writeFile(file, "");  // an empty file is an empty document: nothing to keep
  ASSERT_TRUE(store.write({{"a", StoreValue::boolean(true)}}));
  EXPECT_EQ(files("settings.json.unreadable-").size(), 2u);
}

TEST_F(JsonFileStoreTest, ProcessesAndThreadsWritingDifferentKeysAtOnceLoseNothing) {
  constexpr int perWriter = 60;
  std::thread child([&] { EXPECT_EQ(writer(file, "child.", perWriter), 0); });
  JsonFileStore other(file);
  std::atomic<bool> writing{true};
  std::thread reader([&] {
    while (writing) (void)store.object("thread.0");
  });
  std::thread thread([&] {
    for (int i = 0; i < perWriter; ++i) other.set("thread." + std::to_string(i), StoreValue::number(i));
  });
  for (int i = 0; i < perWriter; ++i) store.set("main." + std::to_string(i), StoreValue::boolean(true));
  thread.join();
  child.join();
  writing = false;
  reader.join();
  JsonFileStore fresh(file);
  for (int i = 0; i < perWriter; ++i) {
    for (const char* prefix : {"child.", "thread.", "main."}) {
      EXPECT_TRUE(fresh.object(prefix + std::to_string(i)).has_value()) << prefix << i;
    }
  }
  EXPECT_TRUE(files("settings.json.tmp-").empty());
}

TEST_F(JsonFileStoreTest, AFailedWriteLeavesTheFileAsItWasAndSaysSo) {
  ASSERT_TRUE(store.write({{"kept", StoreValue::string("before")}}));
  const std::string before = readFile(file);
  // A value that JSON cannot carry is refused without touching the file.
  EXPECT_FALSE(store.write({{"bad", StoreValue::string("\xff\xfe")}, {"kept", std::nullopt}}));
  // The disk fills up: the file size limit stops the temporary file short.
  EXPECT_EQ(writer(file, "big.", 1, [] {
              const rlimit limit{4096, 4096};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              ::signal(SIGXFSZ, SIG_IGN);
            }, 100000), 1);
  // The folder is read-only for the writer. The writer keeps this user (it must still reach its
  // program and the file wherever they live) but loses the powers that pass over permissions.
  fs::permissions(file.parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
  const int readOnly = writer(file, "late.", 1, [] {
    for (const int power : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
      if (::prctl(PR_CAPBSET_DROP, power, 0, 0, 0) != 0 && ::geteuid() == 0) ::_exit(kCannotDropPowers);
    }
  });
  fs::permissions(file.parent_path(), fs::perms::owner_all);
  EXPECT_EQ(readFile(file), before);
  EXPECT_TRUE(files("settings.json.tmp-").empty());
  REQUIRE_RIG(readOnly != kCannotDropPowers, "the superuser here cannot give up its file powers");
  EXPECT_EQ(readOnly, 1);
}

}  // namespace
}  // namespace wh::platform
