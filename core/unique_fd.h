// A descriptor that closes itself when its owner goes out of scope.
#pragma once

#include <unistd.h>

class UniqueFd {
  public:
    constexpr UniqueFd() = default;
    constexpr explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    UniqueFd(UniqueFd &&) = delete;
    UniqueFd &operator=(UniqueFd &&) = delete;
    ~UniqueFd() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool valid() const { return fd_ >= 0; }
    // Closes the descriptor now, if open, and takes the new one.
    void reset(int fd = -1) {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = fd;
    }
    // Hands the descriptor over to the caller, who closes it.
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_ = -1;
};
