// Where the application group's shared container is on Linux: a configured directory.
//
// Threads: both functions may be called on any thread.
#pragma once

#include <optional>
#include <string>

namespace tulo::platform {

// Sets the container of this process, as the command line's --container does. Nothing restores the
// default: $TULO_CONTAINER, else $XDG_DATA_HOME/tulo, else ~/.local/share/tulo.
// A directory that does not exist (yet) is no container; it is looked for again at each request.
void setContainerDirectory(std::optional<std::string> directory);

// The configured path, absolute, whether or not there is a directory; empty when there is neither
// a setting nor a home directory.
std::string containerDirectory();

}  // namespace tulo::platform
