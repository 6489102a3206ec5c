#include "support/StandInSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace wh::test {

StandInSocket::StandInSocket(const std::filesystem::path& path, Kind kind) : path_(path) {
  std::error_code error;
  if (std::filesystem::exists(path, error)) {
    whyNot_ = "something listens on " + path.string() + " already; not taking its place";
    return;
  }
  for (auto folder = path.parent_path(); !std::filesystem::exists(folder, error); folder = folder.parent_path()) {
    madeFolders_.push_back(folder);
  }
  std::filesystem::create_directories(path.parent_path(), error);
  fd_ = ::socket(AF_UNIX, (kind == Kind::stream ? SOCK_STREAM | SOCK_NONBLOCK : SOCK_DGRAM) | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  if (error || fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      (kind == Kind::stream && ::listen(fd_, 8) != 0)) {
    whyNot_ = "cannot listen on " + path.string() + " (needs to run as root)";
  }
}

StandInSocket::~StandInSocket() {
  if (fd_ >= 0) ::close(fd_);
  std::error_code ignored;
  if (whyNot_.empty()) std::filesystem::remove(path_, ignored);
  for (const auto& folder : madeFolders_) std::filesystem::remove(folder, ignored);
}

bool StandInSocket::connected() const {
  const int client = ::accept(fd_, nullptr, nullptr);
  if (client >= 0) ::close(client);
  return client >= 0;
}

std::vector<std::string> StandInSocket::receive(const std::string& marker, std::size_t wanted) const {
  std::vector<std::string> found;
  for (int waits = 0; found.size() < wanted && waits < 50; ++waits) {
    pollfd ready{fd_, POLLIN, 0};
    if (::poll(&ready, 1, 100) <= 0) continue;
    char buffer[8192];
    const ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
    if (got <= 0) continue;
    std::string datagram(buffer, static_cast<std::size_t>(got));
    if (datagram.find(marker) != std::string::npos) found.push_back(datagram);
  }
  return found;
}

}  // namespace wh::test
