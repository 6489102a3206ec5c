#pragma once
// A Unix socket that a test binds in a service's place. It never answers: a stream socket tells
// whether anyone connected, a datagram socket hands over what was sent to it. It refuses a path
// that exists (a real service may listen there), and removes the socket and the folders made for
// it when dropped.

#include <filesystem>
#include <string>
#include <vector>

namespace wh::test {

class StandInSocket {
 public:
  enum class Kind { stream, datagram };

  StandInSocket(const std::filesystem::path& path, Kind kind);
  ~StandInSocket();
  StandInSocket(const StandInSocket&) = delete;
  StandInSocket& operator=(const StandInSocket&) = delete;

  // Empty when the socket listens; else why not.
  const std::string& whyNot() const { return whyNot_; }
  // Stream: whether someone connected since the last call.
  bool connected() const;
  // Datagram: up to `wanted` datagrams that contain `marker`, waiting up to five seconds.
  std::vector<std::string> receive(const std::string& marker, std::size_t wanted) const;

 private:
  std::filesystem::path path_;
  std::vector<std::filesystem::path> madeFolders_;
  std::string whyNot_;
  int fd_ = -1;
};

}  // namespace wh::test
