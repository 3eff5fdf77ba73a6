#include "platform/bus/Connection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace zal::bus {

namespace {

constexpr int backlog = 16;

// A socket address is short, a path may be long: the address names the file through its opened directory.
struct Address {
  UniqueFd directory;
  sockaddr_un name{};
};

bool make_address(const std::string& path, Address& address) {
  const auto slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
  address.directory.reset(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!address.directory) return false;
  const std::string name = "/proc/self/fd/" + std::to_string(address.directory.get()) + "/" + file;
  if (file.empty() || name.size() >= sizeof address.name.sun_path) {
    errno = file.empty() ? EISDIR : ENAMETOOLONG;
    return false;
  }
  address.name.sun_family = AF_UNIX;
  std::memcpy(address.name.sun_path, name.c_str(), name.size() + 1);
  return true;
}

using SocketCall = int (*)(int, const sockaddr*, socklen_t);

UniqueFd open_socket(const std::string& path, SocketCall attach) {
  Address address;
  if (!make_address(path, address)) return {};
  UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!fd) return {};
  if (attach(fd.get(), reinterpret_cast<const sockaddr*>(&address.name), sizeof address.name) != 0) return {};
  return fd;
}

// Nobody can connect before the socket listens, and nobody but its owner from then on.
int bind_for_owner(int fd, const sockaddr* address, socklen_t size) {
  if (bind(fd, address, size) != 0) return -1;
  return chmod(reinterpret_cast<const sockaddr_un*>(address)->sun_path, S_IRUSR | S_IWUSR);
}

bool is_temporary(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

Connection::Connection(UniqueFd fd) : fd_(std::move(fd)) {}

bool Connection::read() {
  std::vector<char> chunk(read_chunk);
  const ssize_t got = recv(fd_.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
  if (got < 0) return is_temporary(errno);
  reader_.append(chunk.data(), static_cast<std::size_t>(got));
  return got > 0;
}

bool Connection::send(std::string frame) {
  if (!queue_.empty() && queued_ + frame.size() > max_queued) return false;
  queued_ += frame.size();
  queue_.push_back(std::move(frame));
  return true;
}

bool Connection::flush() {
  while (!queue_.empty()) {
    const std::string& frame = queue_.front();
    const ssize_t sent =
        ::send(fd_.get(), frame.data() + written_, frame.size() - written_, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) return is_temporary(errno);
    written_ += static_cast<std::size_t>(sent);
    if (written_ < frame.size()) continue;
    queued_ -= frame.size();
    written_ = 0;
    queue_.pop_front();
  }
  return true;
}

void Connection::shut_down() {
  shutdown(fd_.get(), SHUT_RDWR);
}

UniqueFd listen_at(const std::string& path) {
  UniqueFd fd = open_socket(path, bind_for_owner);
  if (fd && listen(fd.get(), backlog) != 0) return {};
  return fd;
}

UniqueFd connect_to(const std::string& path) {
  return open_socket(path, connect);
}

UniqueFd accept_from(int listener) {
  return UniqueFd(accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

}  // namespace zal::bus
