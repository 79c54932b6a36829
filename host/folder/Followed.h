// What came of an attempt to bring the index up to date with the folder.
#pragma once

namespace tulo::host {

enum class Followed {
  all,
  // But for what lies in some folders that could not be read.
  partly,
  // Nothing may be relied on: everything has to be looked at.
  failed,
};

}  // namespace tulo::host
