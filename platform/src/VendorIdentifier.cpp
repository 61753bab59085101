#include "VendorIdentifier.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <random>

#include "AppGroupContainer.h"

namespace platform::detail {
namespace {

constexpr std::string_view kVendorIdFileName = "vendor-id";

std::array<std::uint8_t, 16> randomBytes() {
  std::array<std::uint8_t, 16> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    std::random_device device;
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(device());
  }
  return bytes;
}

std::optional<std::string> readSmallText(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return std::nullopt;
  char buffer[128];
  ssize_t length;
  do {
    length = ::read(fd, buffer, sizeof buffer);
  } while (length < 0 && errno == EINTR);
  ::close(fd);
  if (length < 0) return std::nullopt;
  return std::string(buffer, static_cast<std::size_t>(length));
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
    text.remove_suffix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
    text.remove_prefix(1);
  return text;
}

std::optional<std::string> readIdentifierFile(const std::string& path) {
  const std::optional<std::string> text = readSmallText(path);
  if (!text) return std::nullopt;
  return canonicalUuid(trimmed(*text));
}

// Writes a fresh identifier to a private temporary file and moves it into place. link() never
// replaces a file, so when two processes race the first one's identifier stays; a garbled file is
// replaced.
void publishNewIdentifier(const std::string& path) {
  const std::string temporary =
      path + ".tmp." + std::to_string(::getpid()) + "." + randomUuid().substr(0, 8);
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return;
  const std::string content = randomUuid() + "\n";
  const bool written =
      ::fchmod(fd, 0600) == 0 &&
      ::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
      ::fsync(fd) == 0;
  ::close(fd);
  if (written && ::link(temporary.c_str(), path.c_str()) != 0 && errno == EEXIST &&
      !readIdentifierFile(path)) {
    (void)::rename(temporary.c_str(), path.c_str());
  }
  ::unlink(temporary.c_str());
}

}  // namespace

std::optional<std::string> canonicalUuid(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  std::string canonical(text);
  for (std::size_t i = 0; i < canonical.size(); ++i) {
    const bool hyphenPlace = i == 8 || i == 13 || i == 18 || i == 23;
    const auto c = static_cast<unsigned char>(canonical[i]);
    if (hyphenPlace ? c != '-' : !std::isxdigit(c)) return std::nullopt;
    canonical[i] = static_cast<char>(std::toupper(c));
  }
  return canonical;
}

std::string randomUuid() {
  std::array<std::uint8_t, 16> bytes = randomBytes();
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kHex[bytes[i] >> 4];
    text += kHex[bytes[i] & 0x0F];
  }
  return text;
}

std::optional<std::string> storedVendorIdentifier(const std::string& containerDirectory) {
  const std::string path = containerDirectory + "/" + std::string(kVendorIdFileName);
  if (std::optional<std::string> existing = readIdentifierFile(path)) return existing;
  if (!createPrivateDirectories(containerDirectory)) return std::nullopt;
  publishNewIdentifier(path);
  return readIdentifierFile(path);
}

}  // namespace platform::detail
