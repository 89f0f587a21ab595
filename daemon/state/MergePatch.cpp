#include "daemon/state/MergePatch.h"

#include <utility>

namespace PimSnmpd {

using Json = nlohmann::json;

void mergePatchInPlace(Json& target, const Json& patch) {
  if (!patch.is_object()) {
    target = patch;
    return;
  }
  if (!target.is_object()) target = Json::object();
  for (const auto& [name, value] : patch.items()) {
    if (value.is_null()) {
      target.erase(name);
    } else {
      mergePatchInPlace(target[name], value);
    }
  }
}

Json mergePatch(Json target, const Json& patch) {
  mergePatchInPlace(target, patch);
  return target;
}

Json mergePatchInPlaceWithUndo(Json& target, const Json& patch) {
  if (!patch.is_object()) {
    Json old = std::exchange(target, patch);
    return old;
  }
  if (!target.is_object()) {
    // Everything below is new: the undo is the old value as a whole.
    Json old = std::exchange(target, Json::object());
    mergePatchInPlace(target, patch);
    return old;
  }
  Json undo = Json::object();
  for (const auto& [name, value] : patch.items()) {
    auto it = target.find(name);
    if (value.is_null()) {
      if (it == target.end()) {
        undo[name] = nullptr;
      } else {
        undo[name] = std::move(*it);
        target.erase(it);
      }
    } else if (it == target.end()) {
      undo[name] = nullptr;
      mergePatchInPlace(target[name], value);
    } else if (value.is_object() && it->is_object()) {
      undo[name] = mergePatchInPlaceWithUndo(*it, value);
    } else {
      undo[name] = std::move(*it);
      *it = Json();
      mergePatchInPlace(*it, value);
    }
  }
  return undo;
}

}  // namespace PimSnmpd
