#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kav {

// Reads big-endian fields from the front of a byte buffer. A read past the
// end takes nothing, yields zero and marks the cursor failed, so that a
// caller may read a whole record and then ask once.
class kav_byte_cursor {
 public:
  explicit kav_byte_cursor(std::string_view bytes) : bytes_(bytes) {}

  std::size_t remaining() const { return bytes_.size(); }
  bool failed() const { return failed_; }

  // The next `count` bytes, or none when fewer remain.
  std::string_view take(std::size_t count) {
    if (count > bytes_.size()) {
      failed_ = true;
      bytes_ = {};
      return {};
    }
    const std::string_view taken = bytes_.substr(0, count);
    bytes_.remove_prefix(count);
    return taken;
  }

  // An unsigned big-endian number of `width` bytes, at most 8.
  std::uint64_t number(std::size_t width) {
    std::uint64_t value = 0;
    for (const unsigned char byte : take(width)) value = value << 8 | byte;
    return value;
  }

  std::uint8_t byte() { return static_cast<std::uint8_t>(number(1)); }
  std::uint32_t be32() { return static_cast<std::uint32_t>(number(4)); }

 private:
  std::string_view bytes_;
  bool failed_ = false;
};

}  // namespace kav
