#include "service/EngineControl.h"

namespace tulo {

ControlParts controlPartsOf(Engine& engine, const std::string& mountPoint) {
  return {.replica = engine.replica(),
          .sync = engine.sync(),
          .contents = engine.contents(),
          .store = engine.store(),
          .source = engine.source(),
          .openFiles = engine.openFiles(),
          .folders = engine.folders(),
          .files = engine.files(),
          .pins = engine.pins(),
          .uploader = engine.uploader(),
          .domain = engine.options().domain,
          .mountPoint = mountPoint,
          .readWrite = engine.options().readWrite,
          .kept = {},
          .leave = [](const auto&) { return control::UnmountReply{control::Outcome::good()}; },
          .poke = [&engine] { engine.poke(); }};
}

}  // namespace tulo
