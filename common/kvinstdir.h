// The installation: where the toolchain's directory tree lies.
//
// A tool finds the tree from the place of its own program file; nothing is configured. The program
// lies in <version>\bin, <version>\vex\bin or <version>\vex-as\bin, and <version>\vex must exist.
// Letter case does not matter in any of these names, whatever the host thinks of it. Failures are
// silent, apart from the trace: a tool works without an installation.
#pragma once

namespace kv {

/// The directories of an installation.
enum kvinstdir_t : unsigned {
  KVINSTDIR_FIRST = 0,
  KVINSTDIR_INSTALL = KVINSTDIR_FIRST,  ///< the parent of the version directory
  KVINSTDIR_VERSION,                    ///< the directory that holds "vex"
  KVINSTDIR_BIN,
  KVINSTDIR_DOCS,
  KVINSTDIR_INCLUDE,
  KVINSTDIR_ETC,
  KVINSTDIR_VEX,  ///< the device-family directory
  KVINSTDIR_ZEL,
  KVINSTDIR_TSASMX,
  KVINSTDIR_VEX_AS,
  KVINSTDIR_LAST,
};

/// Locates the installation, once; after a failure the next call tries again. Returns true when the
/// installation and the version directory are known.
bool set_kvinstall_paths();

/// Returns a directory of the installation as an interned string, or null when the installation
/// cannot be located or `which` is out of range. The directory itself need not exist.
const char* kvinstdir(unsigned which);

}  // namespace kv
