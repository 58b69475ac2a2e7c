#include "discovery/service_info.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>

#include "os/text.h"
#include "platform/global_memory.h"
#include "util/mem_buffer.h"

namespace mdns_wrapper {
namespace {

// The streams write integers in the order of the machine.
static_assert(std::endian::native == std::endian::little);

constexpr std::uint32_t kGrowStep = 0x80000;
/// Two integers and nine texts of length 0: four bytes each.
constexpr std::uint32_t kLeastRecordBytes = 44;
/// A list that was cut short keeps its count up to this; a longer one is believed only whole.
constexpr std::uint32_t kMostWithoutBytes = 1024;

/// Shows a record's fields to `field`, in the order of the bytes, until one call fails.
template <class Info, class Field>
bool EachField(Info& info, Field field) {
  return field(info.ty) && field(info.accessMode) && field(info.ipv4) && field(info.ipv6) &&
         field(info.modules) && field(info.os) && field(info.tags) && field(info.type) &&
         field(info.url) && field(info.id) && field(info.txtvers);
}

struct Writer {
  CMemBuffer& stream;

  bool operator()(std::int32_t number) const {
    return stream.Write(&number, sizeof number) == sizeof number;
  }
  bool operator()(const std::string& text) const {
    return text.size() <= std::numeric_limits<std::uint32_t>::max() &&
           stream.WriteString(text.data(), static_cast<std::uint32_t>(text.size()));
  }
};

struct FreeBlock {
  void operator()(char* block) const { GlobalFree(static_cast<void*>(block)); }
};

struct Reader {
  CMemBuffer& stream;

  bool operator()(std::int32_t& number) const {
    std::int32_t read = 0;
    if (stream.Read(&read, sizeof read) != sizeof read) return false;
    number = read;
    return true;
  }
  bool operator()(std::string& text) const {
    const std::uint32_t start = stream.GetPosition();
    char* bytes = nullptr;
    if (!stream.ReadStringEx(&bytes, 0, -1)) return false;
    const std::unique_ptr<char, FreeBlock> block(bytes);
    const std::size_t length = stream.GetPosition() - start - sizeof(std::int32_t);
    text = std::string_view(bytes, length);
    return true;
  }
};

/// The field that takes the value of a key as it is, null for the other keys.
std::string* TextField(DNSServiceInfo& info, std::string_view key) {
  const struct {
    std::string_view key;
    std::string* field;
  } kFields[] = {
      {"txtvers", &info.txtvers}, {"ty", &info.ty}, {"id", &info.id},
      {"modules", &info.modules}, {"os", &info.os}, {"url", &info.url},
      {"tags", &info.tags},
  };
  for (const auto& [name, field] : kFields) {
    if (name == key) return field;
  }
  return nullptr;
}

}  // namespace

std::string Serialize(const ServiceList& services) {
  if (services.size() > MOST_SERVICES) return "";
  CMemBuffer stream(kGrowStep);
  const Writer write{stream};
  if (!write(static_cast<std::int32_t>(services.size()))) return "";
  for (const DNSServiceInfo& info : services) {
    if (!EachField(info, write)) return "";
  }
  std::string bytes(stream.GetLength(), '\0');
  stream.Seek(0, 0);
  stream.Read(bytes.data(), stream.GetLength());
  return bytes;
}

ServiceList Deserialize(const std::string& bytes) {
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) return {};
  const auto size = static_cast<std::uint32_t>(bytes.size());
  // The stream only reads from the bytes: it neither owns them nor can it grow.
  auto* block = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  CMemBuffer stream(block, size, 0, 0);
  const Reader read{stream};
  std::int32_t count = 0;
  if (!read(count) || count < 1) return {};
  const auto records = static_cast<std::uint32_t>(count);
  if (records > MOST_SERVICES) return {};
  if (records > kMostWithoutBytes && records > (size - sizeof count) / kLeastRecordBytes) return {};
  ServiceList services(records);
  for (DNSServiceInfo& info : services) {
    if (!EachField(info, read)) break;
  }
  return services;
}

std::string ReadString(CMemBuffer& stream) {
  std::string text;
  Reader{stream}(text);
  return text;
}

DNSServiceInfo serviceInfoFromTxt(const std::string& ipv4, const std::string& ipv6,
                                  const std::map<std::string, std::string>& pairs) {
  DNSServiceInfo info;
  info.ipv4 = ipv4;
  info.ipv6 = ipv6;
  for (const auto& [rawKey, value] : pairs) {
    const std::string key = ascii::Lower(rawKey);
    if (key == "type") {
      const std::string kind = ascii::Lower(value);
      if (kind == "marvique_private_cloud_scan") {
        info.type = SERVICE_PRIVATE_CLOUD_SCAN;
      } else if (kind == "twaindirect") {
        info.type = SERVICE_TWAIN_DIRECT;
      } else {
        info.url.clear();
        info.txtvers.clear();
        break;
      }
    } else if (key == "acessmode") {
      const std::string mode = ascii::Lower(value);
      if (mode == "password_proetect") {
        info.accessMode = ACCESS_PASSWORD;
      } else if (mode == "anonymous") {
        info.accessMode = ACCESS_ANONYMOUS;
      }
    } else if (std::string* field = TextField(info, key)) {
      *field = value;
    }
  }
  return info;
}

}  // namespace mdns_wrapper
