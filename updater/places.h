// Where an update finds and leaves its files, all of them below the service's work folder.
#pragma once

#include <string>

namespace update {

/// Folders end in "/".
struct Places {
  std::string work;      ///< the programs, the settings, the service itself
  std::string settings;  ///< the main settings file
  std::string package;   ///< the unpacked package
  std::string lock;      ///< locked by the updater for its whole life
  std::string log;       ///< what the updater did, a line a step
  std::string output;    ///< what a service that the updater started prints
  std::string run;       ///< who the service is, locked while it runs
  /// The folder of an update under way. It lies beside the programs because files are moved between
  /// the two in one step. It is there only during an update and after one that was cut short. Its
  /// name is none that a package may install, nor one that somebody would give a folder of his own.
  std::string room;
  std::string fresh;    ///< the new files, checked, on their way to their places
  std::string old;      ///< the files that they replace
  std::string journal;  ///< there from the moment on from which an update must be taken back
};

/// The places below a full path.
Places PlacesIn(std::string work);

}  // namespace update
