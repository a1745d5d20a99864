// Common HAL interface library contract: the process-wide logging callbacks of the HAL.
#ifndef HALBD_PLATFORM_HAL_CALLBACKS_ITF_H
#define HALBD_PLATFORM_HAL_CALLBACKS_ITF_H

class HalCallbacksItf {
 public:
  // The process-wide instance. Callers ask for it anew before every message and never keep it.
  static HalCallbacksItf* getInstance();

  // One printf-formatted message at a syslog-numbered level (3 error, 4 warning, 6 info).
  virtual void log(int level, const char* fmt, ...) __attribute__((format(printf, 3, 4))) = 0;

  // One printf-formatted error message carrying an error code (a failing SDK return code, or -1
  // where no SDK call is involved) instead of a level.
  virtual void error(int rc, const char* fmt, ...) __attribute__((format(printf, 3, 4))) = 0;

 protected:
  HalCallbacksItf() = default;
  ~HalCallbacksItf() = default;
};

#endif  // HALBD_PLATFORM_HAL_CALLBACKS_ITF_H
