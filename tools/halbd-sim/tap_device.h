// A TAP interface that carries one switch port's frames between the simulated chip and a Linux
// host: the host's kernel (or a packet socket) sends into it, the model's copies leave through it.
#ifndef HALBD_SIM_TAP_DEVICE_H
#define HALBD_SIM_TAP_DEVICE_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace halbdsim {

// An interface could not be made or used; the text is one line for the user.
class LiveError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Empty when this process may make TAP interfaces; else why not, in one line (no /dev/net/tun,
// or not the rights to open it).
std::string LivePortsUnavailable();

// One TAP interface, owned through its descriptor. The interface is not persistent: the kernel
// removes it when the descriptor closes, so it goes with this object, and with the process
// however that ends.
class TapDevice {
 public:
  // Makes the interface, in the network namespace netns (one that `ip netns` names) or, when
  // netns is empty, in halbd-sim's own, and brings it up. LiveError when it cannot, also when an
  // interface of that name exists there already: it may be someone else's.
  TapDevice(const std::string& name, const std::string& netns);
  ~TapDevice();
  TapDevice(const TapDevice&) = delete;
  TapDevice& operator=(const TapDevice&) = delete;

  int Descriptor() const { return fd_; }
  const std::string& Name() const { return name_; }
  const std::string& Netns() const { return netns_; }

  // The next frame the host sent, without waiting; false when none is waiting.
  bool Receive(std::vector<uint8_t>& frame);
  // Hands a frame to the host. A frame the kernel does not take (the host set its interface
  // down, or its queue is full) is lost, as on a real link.
  void Send(const std::vector<uint8_t>& frame);

 private:
  int fd_ = -1;
  std::vector<uint8_t> buffer_;  // what read() fills; a frame is copied out at its length
  std::string name_;
  std::string netns_;
};

}  // namespace halbdsim

#endif  // HALBD_SIM_TAP_DEVICE_H
