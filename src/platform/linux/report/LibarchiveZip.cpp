#include "platform/linux/report/LibarchiveZip.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <vector>

namespace wh::platform {

namespace {

using Writer = std::unique_ptr<archive, decltype(&archive_write_free)>;
using Entry = std::unique_ptr<archive_entry, decltype(&archive_entry_free)>;

std::string problem(archive* zip) {
  const char* text = archive_error_string(zip);
  return text != nullptr ? text : "libarchive failed";
}

std::string add(archive* zip, const std::filesystem::path& file, const std::string& name) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return "could not read " + file.string();
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  Entry entry(archive_entry_new(), archive_entry_free);
  archive_entry_set_pathname(entry.get(), name.c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), 0644);
  archive_entry_set_size(entry.get(), static_cast<la_int64_t>(bytes.size()));
  archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
  if (archive_write_header(zip, entry.get()) != ARCHIVE_OK) return problem(zip);
  if (!bytes.empty() && archive_write_data(zip, bytes.data(), bytes.size()) < 0) return problem(zip);
  return "";
}

}  // namespace

std::string LibarchiveZip::zip(const std::filesystem::path& folder, const std::filesystem::path& zipPath) {
  std::error_code error;
  std::filesystem::directory_iterator files(folder, error);
  if (error) return "could not read " + folder.string() + ": " + error.message();
  Writer zip(archive_write_new(), archive_write_free);
  if (archive_write_set_format_zip(zip.get()) != ARCHIVE_OK ||
      archive_write_open_filename(zip.get(), zipPath.c_str()) != ARCHIVE_OK) {
    return problem(zip.get());
  }
  const std::string top = folder.filename().string();
  for (const auto& file : files) {
    if (!file.is_regular_file(error)) continue;
    if (auto failure = add(zip.get(), file.path(), top + "/" + file.path().filename().string()); !failure.empty()) {
      return failure;
    }
  }
  if (archive_write_close(zip.get()) != ARCHIVE_OK) return problem(zip.get());
  return "";
}

}  // namespace wh::platform
