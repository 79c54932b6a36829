# The implementations with Apple's frameworks. The classes that the system finds by their name are
# sources of packaging/macos: nothing refers to them, so a library would lose them.
set(TULO_PLATFORM_SOURCES
    apple/Bundle.mm
    apple/Dispatch.mm
    apple/Domain.mm
    apple/FileManager.mm
    apple/GraphemeBreaks.cpp
    apple/JSON.mm
    apple/Log.mm
    apple/Progress.mm
    apple/SystemItem.mm
    apple/Text.mm
    apple/URL.mm
    apple/UTType.mm
    apple/UUID.mm
    apple/UnavailableInitializer.mm
    apple/Values.mm)
set(TULO_PLATFORM_DEPENDS tulo_objectivec)
