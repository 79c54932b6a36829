find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-uc)
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-2.0)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

set(TULO_PLATFORM_SOURCES
    linux/Bundle.cpp
    linux/Container.cpp
    linux/ContentTypes.cpp
    linux/DescriptorLimit.cpp
    linux/Dispatch.cpp
    linux/FileCopy.cpp
    linux/FolderEntries.cpp
    linux/FileManager.cpp
    linux/FileProvider.cpp
    linux/JSON.cpp
    linux/Log.cpp
    linux/LogSink.cpp
    linux/Progress.cpp
    linux/SocketAddress.cpp
    linux/Text.cpp
    linux/TreeCopy.cpp
    linux/TreeRemoval.cpp
    linux/URL.cpp
    linux/UTType.cpp
    linux/UUID.cpp
    linux/WorkerPool.cpp)

set(TULO_PLATFORM_DEPENDS Threads::Threads nlohmann_json::nlohmann_json PkgConfig::ICU
                          PkgConfig::GIO PkgConfig::UUID PkgConfig::SYSTEMD)
