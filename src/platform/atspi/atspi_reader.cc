#include "platform/atspi/atspi_reader.h"

#include <deque>

namespace tovrin {
namespace {

AXError errorFor(BusStatus status) {
  return status == BusStatus::kTimedOut ? kAXErrorCannotComplete
                                        : kAXErrorAPIDisabled;
}

bool hasFocus(const std::vector<uint32_t>& words) {
  constexpr size_t word = kAtspiStateFocused / 32;
  return words.size() > word &&
         (words[word] & (1u << (kAtspiStateFocused % 32))) != 0;
}

/// The focused element under `root`, found by walking the tree breadth
/// first within the limits. An application without Collection is rare and
/// its tree can be large: the walk stops rather than spend the budget.
BusReply<AccessibleRef> walkToFocus(AtspiBus& bus, const AccessibleRef& root,
                                    const AtspiReadLimits& limits,
                                    std::chrono::nanoseconds deadline) {
  std::deque<std::pair<AccessibleRef, int>> queue = {{root, 0}};
  int visited = 0;
  while (!queue.empty() && visited < limits.maxNodes) {
    auto [object, depth] = std::move(queue.front());
    queue.pop_front();
    ++visited;
    const auto states = bus.states(object, deadline);
    if (states.status == BusStatus::kTimedOut) return {BusStatus::kTimedOut};
    // An object that vanished under the walk is passed over.
    if (states.status == BusStatus::kOk && hasFocus(states.value)) {
      return {BusStatus::kOk, object};
    }
    if (depth >= limits.maxDepth) continue;
    const auto children = bus.children(object, deadline);
    if (children.status == BusStatus::kTimedOut) return {BusStatus::kTimedOut};
    for (const AccessibleRef& child : children.value) {
      queue.emplace_back(child, depth + 1);
    }
  }
  return {BusStatus::kOk, AccessibleRef{}};
}

std::string describe(AtspiBus& bus, const AccessibleRef& root,
                     std::chrono::nanoseconds deadline) {
  const auto name = bus.name(root, deadline);
  const auto toolkit = bus.toolkitName(root, deadline);
  std::string source = name.status == BusStatus::kOk && !name.value.empty()
                           ? name.value
                           : root.bus;
  if (toolkit.status == BusStatus::kOk && !toolkit.value.empty()) {
    source += " (" + toolkit.value + ")";
  }
  return source;
}

}  // namespace

AtspiRead readSelectedText(AtspiBus& bus, pid_t pid,
                           const AtspiReadLimits& limits) {
  const std::chrono::nanoseconds deadline = bus.now() + limits.budget;
  AtspiRead result;

  const auto applications = bus.applications(deadline);
  if (applications.status != BusStatus::kOk) {
    result.error = errorFor(applications.status);
    return result;
  }
  // An application that hangs on the bus is not the focused one's fault:
  // a failed look-up of its process passes it over.
  std::vector<AccessibleRef> candidates;
  for (const AccessibleRef& application : applications.value) {
    if (bus.now() >= deadline) {
      result.error = kAXErrorCannotComplete;
      return result;
    }
    const auto process = bus.processOf(application.bus, deadline);
    if (process.status == BusStatus::kOk && process.value == pid) {
      candidates.push_back(application);
    }
  }
  // A process without an application on the bus has no accessibility.
  result.error = kAXErrorAPIDisabled;
  for (const AccessibleRef& root : candidates) {
    auto focus = bus.focusedDescendants(root, deadline);
    if (focus.status == BusStatus::kUnavailable) {
      const auto walked = walkToFocus(bus, root, limits, deadline);
      focus.status = walked.status;
      focus.value.clear();
      if (!walked.value.path.empty()) focus.value.push_back(walked.value);
    }
    if (focus.status == BusStatus::kTimedOut) {
      result.error = kAXErrorCannotComplete;
      return result;
    }
    if (focus.value.empty()) {
      result.error = kAXErrorNoValue;
      continue;
    }
    result.source = describe(bus, root, deadline);
    const AccessibleRef& element = focus.value.front();
    const auto ranges = bus.selections(element, deadline);
    if (ranges.status != BusStatus::kOk) {
      result.error = errorFor(ranges.status);
      return result;
    }
    std::string text;
    for (const TextRange& range : ranges.value) {
      if (range.second <= range.first) continue;
      const auto part = bus.text(element, range, deadline);
      if (part.status != BusStatus::kOk) {
        result.error = errorFor(part.status);
        return result;
      }
      if (!text.empty()) text += '\n';
      text += part.value;
    }
    if (text.empty()) {
      result.error = kAXErrorNoValue;
      return result;
    }
    result.error = kAXErrorSuccess;
    result.text = std::move(text);
    return result;
  }
  return result;
}

}  // namespace tovrin
