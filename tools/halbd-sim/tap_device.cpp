#include "tap_device.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

namespace halbdsim {

namespace {

constexpr const char* kTunDevice = "/dev/net/tun";
// Where `ip netns add` keeps the handle of each namespace it names.
constexpr const char* kNamedNamespaces = "/run/netns/";
// The largest frame a TAP hands over: its MTU could be raised to 64 KiB.
constexpr size_t kMaxFrameBytes = 65536 + 64;

std::string ErrorText(int error) {
  return std::error_code(error, std::generic_category()).message();
}

// A descriptor closed when its scope ends.
class OwnedFd {
 public:
  explicit OwnedFd(int fd) : fd_(fd) {}
  ~OwnedFd() {
    if (fd_ >= 0)
      close(fd_);
  }
  OwnedFd(const OwnedFd&) = delete;
  OwnedFd& operator=(const OwnedFd&) = delete;
  int Get() const { return fd_; }
  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

// While it lives, this thread works in another network namespace: a TAP opened there is made
// there, and a socket made there configures that namespace's interfaces. The descriptors keep
// working after the thread returns to its own namespace.
class NamespaceVisit {
 public:
  explicit NamespaceVisit(const std::string& netns) {
    if (netns.empty())
      return;
    if (netns.find('/') != std::string::npos || netns == "." || netns == "..")
      throw LiveError("'" + netns + "' cannot name a network namespace");
    const std::string path = kNamedNamespaces + netns;
    const OwnedFd target(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (target.Get() < 0) {
      throw LiveError("no network namespace '" + netns + "' (" + path + ": " + ErrorText(errno) +
                      "; 'ip netns add " + netns + "' makes one)");
    }
    home_ = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    if (home_ < 0 || setns(target.Get(), CLONE_NEWNET) != 0) {
      const int error = errno;
      if (home_ >= 0)
        close(home_);
      throw LiveError("cannot enter network namespace '" + netns + "': " + ErrorText(error));
    }
  }
  ~NamespaceVisit() {
    if (home_ < 0)
      return;
    // Staying in the other namespace would put every later interface in the wrong place.
    if (setns(home_, CLONE_NEWNET) != 0) {
      std::perror("halbd-sim: cannot return to its own network namespace");
      std::abort();
    }
    close(home_);
  }
  NamespaceVisit(const NamespaceVisit&) = delete;
  NamespaceVisit& operator=(const NamespaceVisit&) = delete;

 private:
  int home_ = -1;
};

std::string Where(const std::string& netns) {
  return netns.empty() ? "" : " in network namespace '" + netns + "'";
}

void BringUp(const std::string& name, const std::string& netns) {
  const OwnedFd control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
  if (control.Get() < 0 || ioctl(control.Get(), SIOCGIFFLAGS, &request) != 0)
    throw LiveError("cannot read the flags of " + name + Where(netns) + ": " + ErrorText(errno));
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  if (ioctl(control.Get(), SIOCSIFFLAGS, &request) != 0)
    throw LiveError("cannot bring " + name + " up" + Where(netns) + ": " + ErrorText(errno));
}

}  // namespace

std::string LivePortsUnavailable() {
  const OwnedFd tun(open(kTunDevice, O_RDWR | O_CLOEXEC));
  if (tun.Get() >= 0)
    return "";
  const int error = errno;
  std::string reason = std::string("live ports need ") + kTunDevice + ": " + ErrorText(error);
  if (error == EACCES || error == EPERM)
    reason += " (run as root, or with CAP_NET_ADMIN and access to it)";
  return reason;
}

TapDevice::TapDevice(const std::string& name, const std::string& netns)
    : name_(name), netns_(netns) {
  if (name.empty() || name.size() >= IFNAMSIZ || name.find_first_of("/ \t:") != std::string::npos)
    throw LiveError("'" + name + "' cannot name an interface (at most 15 characters, no '/')");
  const NamespaceVisit visit(netns);
  if (if_nametoindex(name.c_str()) != 0)
    throw LiveError("an interface named " + name + " exists already" + Where(netns));
  OwnedFd tun(open(kTunDevice, O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (tun.Get() < 0)
    throw LiveError(LivePortsUnavailable());
  ifreq request{};
  // Plain Ethernet frames, without the packet-information header in front of each.
  request.ifr_flags = IFF_TAP | IFF_NO_PI;
  std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
  if (ioctl(tun.Get(), TUNSETIFF, &request) != 0) {
    const int error = errno;
    throw LiveError("cannot make interface " + name + Where(netns) + ": " + ErrorText(error) +
                    (error == EPERM ? " (root or CAP_NET_ADMIN is needed)" : ""));
  }
  BringUp(name, netns);
  fd_ = tun.Release();
}

TapDevice::~TapDevice() {
  close(fd_);
}

bool TapDevice::Receive(std::vector<uint8_t>& frame) {
  buffer_.resize(kMaxFrameBytes);  // once: later calls find it sized
  for (;;) {
    const ssize_t length = read(fd_, buffer_.data(), buffer_.size());
    if (length >= 0) {
      frame.assign(buffer_.begin(), buffer_.begin() + length);
      return true;
    }
    if (errno != EINTR)
      return false;
  }
}

void TapDevice::Send(const std::vector<uint8_t>& frame) {
  while (write(fd_, frame.data(), frame.size()) < 0 && errno == EINTR) {
  }
}

}  // namespace halbdsim
