// The system of modules that the supervisor runs in the demo: its configuration, its data, and who is in it.
#pragma once

#include "demo/Actor.h"

#include <vector>

class Stage;

/// Where the things are, by names in the stage's folder: the supervisor's working folder.
namespace system_files {
inline const char configuration[] = "platform.json";
inline const char tracks[] = "lists/tracks";            ///< what Playlists keeps
inline const char savedTracks[] = "saved/lists/tracks"; ///< the copy of a save
inline const char gate[] = "gate";                      ///< while there is such a pipe, a save waits for its content
} // namespace system_files

/// Makes the folders and the files, the configuration among them.
void prepareSystem(const Stage& stage);

/// The modules of the configuration, with the ends that they will have.
std::vector<Role> systemRoles();

/// Throws Missing when the file cannot be written.
void writeFile(const QString& path, const QByteArray& content);

/// Empty when it cannot be read.
QByteArray contentOf(const QString& path);
