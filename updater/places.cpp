#include "updater/places.h"

#include "environment/update_names.h"

namespace update {

Places PlacesIn(std::string work) {
  if (!work.ends_with('/')) work += '/';
  Places places;
  places.settings = work + "QVConfiguration.ini";
  places.package = work + "cache/" + PACKAGE_FOLDER + "/";
  places.lock = work + "cache/update.lock";
  places.log = work + "log/update.log";
  places.output = work + "log/service_output.log";
  places.run = work + "service.run";
  places.room = work + ".qv_update/";
  places.fresh = places.room + "new/";
  places.old = places.room + "old/";
  places.journal = places.room + "journal";
  places.work = std::move(work);
  return places;
}

}  // namespace update
