#include "frame/image_map.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "environment/logging.h"
#include "util/cutil.h"

namespace {

std::string Normalised(const char* path) {
  std::string normalised = path;
  CUtil::find_and_replace(normalised, "\\", "/");
  return normalised;
}

}  // namespace

std::string ImageMap::GetGUID(const char* url, const char* prefix) {
  constexpr std::string_view kKey = "GUID=";
  const std::string_view text(url);
  if (text.find(prefix) == std::string_view::npos) return "";
  const auto key = text.find(kKey);
  if (key == std::string_view::npos) return "";
  // Everything behind it belongs to the value: it is the last key of the url.
  return std::string(text.substr(key + kKey.size()));
}

int ImageMap::GetImage(const char* url, void* out, unsigned int* len) {
  const std::string guid = GetGUID(url, "/GetEncryptedImageMap?");
  if (guid.empty()) return 0;
  UploadDataStruct image;
  {
    const ReadHold hold(dataLock_);
    const auto found = images_.find(guid);
    if (found == images_.end()) return 0;
    image = found->second;
  }
  *len = static_cast<unsigned int>(image.size());
  if (out != nullptr) std::memcpy(out, image.data(), image.size());
  return 1;
}

int ImageMap::SetImage(const char* url, const void* data, unsigned int len) {
  const std::string guid = GetGUID(url, "/SetEncryptedImageMap?");
  if (guid.empty()) return 0;
  if (data == nullptr) {
    const WriteHold hold(dataLock_);
    images_.erase(guid);
    return 1;
  }
  UploadDataStruct image = {};
  std::memcpy(image.data(), data, std::min<std::size_t>(len, image.size()));
  const WriteHold hold(dataLock_);
  images_[guid] = image;
  return 1;
}

bool ImageMap::FileIsInWhiteList(const char* path) {
  const std::string normalised = Normalised(path);
  LogDebug("FileIsInWhiteList: [%s][%s].", path, normalised.c_str());
  const ReadHold hold(dataLock_);
  return whiteList_.contains(normalised);
}

void ImageMap::AddFileToWhiteList(const char* path) {
  std::string normalised = Normalised(path);
  const WriteHold hold(dataLock_);
  whiteList_.emplace(std::move(normalised), '0');
}
