// A file descriptor with an owner, and a wake-up that poll can wait for.
//
// Threads: Descriptor is a plain move-only value. WakeUp::Set may be called from any thread, the rest belongs
// to the thread that waits.
#pragma once

namespace zohost {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor();

  int Get() const { return number_; }

 private:
  int number_ = -1;
};

class WakeUp {
 public:
  // Raises std::system_error when the system has no descriptor left.
  WakeUp();
  void Set() noexcept;
  void Clear() noexcept;
  // Readable while set.
  int Number() const { return event_.Get(); }

 private:
  Descriptor event_;
};

}  // namespace zohost
