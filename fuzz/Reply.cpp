// What a host may send back: decoding it and judging it. Garbage is no object; an object is a
// success or a failure that names itself; what was decoded is encoded and decoded again unchanged.
#include "bridge/HostBridge.h"
#include "bridge/HostBridgeError.h"
#include "fuzz/Input.h"
#include "platform/JSON.h"

using tulo::HostBridge;
using tulo::HostBridgeError;
using tulo::fuzz::require;
using tulo::platform::JSONSerialization;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto reply = JSONSerialization::object(tulo::fuzz::Input(data, size).rest());
  if (!reply) return 0;
  require(JSONSerialization::object(JSONSerialization::data(*reply)) == reply,
          "an object survives encoding and decoding");
  try {
    HostBridge::succeed(*reply);
    require(reply->contains("ok"), "a success says ok");
  } catch (const HostBridgeError& error) {
    require(!error.isUnreachable(), "a host that answers can be reached");
    require(error.description().find(error.message()) != std::string::npos,
            "the description holds the message");
  }
  return 0;
}
