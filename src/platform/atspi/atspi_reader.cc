#include "platform/atspi/atspi_reader.h"

#include <cctype>

#include <algorithm>
#include <deque>

namespace tovrin {
namespace {

using std::chrono::nanoseconds;

/// How many focused objects are asked for a text before giving up.
constexpr int kMaxFocusedObjects = 4;

AXError errorFor(BusStatus status) {
  return status == BusStatus::kTimedOut ? kAXErrorCannotComplete
                                        : kAXErrorAPIDisabled;
}

bool hasState(const std::vector<uint32_t>& words, int bit) {
  const size_t word = static_cast<size_t>(bit) / 32;
  return words.size() > word && (words[word] & (1u << (bit % 32))) != 0;
}

/// The focused objects under `top`, walked breadth first within the
/// limits, one at a time. An application without Collection is rare and
/// its tree can be large: the walk stops rather than spend the budget.
class FocusWalk {
 public:
  FocusWalk(AtspiBus& bus, const AccessibleRef& top,
            const AtspiReadLimits& limits, nanoseconds deadline)
      : bus_(bus), limits_(limits), deadline_(deadline), queue_{{top, 0}} {}

  /// The next focused object; an empty path when there is none left.
  BusReply<AccessibleRef> next() {
    while (!queue_.empty() && visited_ < limits_.maxNodes) {
      auto [object, depth] = std::move(queue_.front());
      queue_.pop_front();
      ++visited_;
      const auto states = bus_.states(object, deadline_);
      if (states.status == BusStatus::kTimedOut) return {BusStatus::kTimedOut};
      if (depth < limits_.maxDepth) {
        const auto children = bus_.children(object, deadline_);
        if (children.status == BusStatus::kTimedOut) {
          return {BusStatus::kTimedOut};
        }
        for (const AccessibleRef& child : children.value) {
          queue_.emplace_back(child, depth + 1);
        }
      }
      // An object that vanished under the walk is passed over.
      if (states.status == BusStatus::kOk &&
          hasState(states.value, kAtspiStateFocused)) {
        return {BusStatus::kOk, object};
      }
    }
    return {BusStatus::kOk, AccessibleRef{}};
  }

 private:
  AtspiBus& bus_;
  const AtspiReadLimits& limits_;
  const nanoseconds deadline_;
  std::deque<std::pair<AccessibleRef, int>> queue_;
  int visited_ = 0;
};

/// The top-level window of the application at `root` that has the
/// keyboard; an empty path when none has.
BusReply<AccessibleRef> activeWindow(AtspiBus& bus, const AccessibleRef& root,
                                     const AtspiReadLimits& limits,
                                     nanoseconds deadline) {
  const auto windows = bus.children(root, deadline);
  if (windows.status == BusStatus::kTimedOut) return {BusStatus::kTimedOut};
  int asked = 0;
  for (const AccessibleRef& window : windows.value) {
    if (asked++ == limits.maxFrames) break;
    const auto states = bus.states(window, deadline);
    if (states.status == BusStatus::kTimedOut) return {BusStatus::kTimedOut};
    if (states.status == BusStatus::kOk &&
        hasState(states.value, kAtspiStateActive)) {
      return {BusStatus::kOk, window};
    }
  }
  return {BusStatus::kOk, AccessibleRef{}};
}

/// The focused objects under `top`, in tree order: through Collection
/// where the application has it, else by walking.
class FocusSearch {
 public:
  FocusSearch(AtspiBus& bus, const AccessibleRef& top,
              const AtspiReadLimits& limits, nanoseconds deadline)
      : matches_(bus.focusedDescendants(top, deadline)) {
    if (matches_.status == BusStatus::kUnavailable) {
      walk_.emplace(bus, top, limits, deadline);
    }
  }

  /// The next focused object; an empty path when there is none left.
  BusReply<AccessibleRef> next() {
    if (walk_) return walk_->next();
    if (matches_.status != BusStatus::kOk) return {matches_.status};
    if (index_ == matches_.value.size()) return {BusStatus::kOk};
    return {BusStatus::kOk, matches_.value[index_++]};
  }

 private:
  BusReply<std::vector<AccessibleRef>> matches_;
  std::optional<FocusWalk> walk_;
  size_t index_ = 0;
};

std::string describe(AtspiBus& bus, const AccessibleRef& root,
                     nanoseconds deadline) {
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

/// Gathers the selected text of an element. Web content keeps its blocks
/// (paragraphs, list items) as children, each standing in the parent's
/// text as one embedded-object character: those are replaced by the
/// selected part of the object they stand for.
class SelectedText {
 public:
  SelectedText(AtspiBus& bus, const AtspiReadLimits& limits,
               nanoseconds deadline)
      : bus_(bus), limits_(limits), deadline_(deadline) {}

  /// Appends the text of each non-empty range of `object`, joined by line
  /// breaks.
  AXError appendRanges(const AccessibleRef& object,
                       const std::vector<TextRange>& ranges, int depth,
                       std::string& out) {
    bool first = true;
    for (const TextRange& range : ranges) {
      if (range.second <= range.first && range.second != -1) continue;
      if (!first) out += '\n';
      first = false;
      const AXError error = appendText(object, range, depth, out);
      if (error != kAXErrorSuccess) return error;
    }
    return kAXErrorSuccess;
  }

 private:
  AXError appendText(const AccessibleRef& object, TextRange range, int depth,
                     std::string& out) {
    const auto part = bus_.text(object, range, deadline_);
    if (part.status != BusStatus::kOk) return errorFor(part.status);
    const std::string_view text = part.value;
    // Offsets count characters; a byte that does not continue a UTF-8
    // sequence starts one (invalid bytes each count as one, as the
    // repair to valid UTF-8 later makes them).
    int32_t offset = range.first;
    size_t copied = 0;
    bool afterObject = false;
    for (size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if ((byte & 0xC0) == 0x80) continue;
      if (text.substr(i, kEmbeddedObjectCharacter.size()) ==
          kEmbeddedObjectCharacter) {
        if (i > copied) afterObject = false;
        out.append(text.substr(copied, i - copied));
        const AXError error =
            appendEmbedded(object, offset, depth, afterObject, out);
        if (error != kAXErrorSuccess) return error;
        afterObject = true;
        copied = i + kEmbeddedObjectCharacter.size();
      }
      ++offset;
    }
    out.append(text.substr(copied));
    return kAXErrorSuccess;
  }

  /// Appends the selected text of the object embedded at `offset` of
  /// `parent`; all of its text when it tells no selection of its own.
  /// Objects side by side are blocks: a line break parts them.
  AXError appendEmbedded(const AccessibleRef& parent, int32_t offset,
                         int depth, bool afterObject, std::string& out) {
    if (++embedded_ > limits_.maxEmbedded ||
        depth >= limits_.maxEmbeddedDepth) {
      return kAXErrorNoValue;
    }
    const auto child = bus_.embeddedObject(parent, offset, deadline_);
    if (child.status == BusStatus::kTimedOut) return kAXErrorCannotComplete;
    // An object without text of its own (an image) adds nothing.
    if (child.status != BusStatus::kOk) return kAXErrorSuccess;
    auto ranges = bus_.selections(child.value, deadline_);
    if (ranges.status == BusStatus::kTimedOut) return kAXErrorCannotComplete;
    if (ranges.status != BusStatus::kOk) return kAXErrorSuccess;
    const bool selected = std::any_of(
        ranges.value.begin(), ranges.value.end(),
        [](const TextRange& range) { return range.second > range.first; });
    if (!selected) ranges.value = {{0, -1}};
    if (afterObject && !out.empty() && out.back() != '\n') out += '\n';
    return appendRanges(child.value, ranges.value, depth + 1, out);
  }

  AtspiBus& bus_;
  const AtspiReadLimits& limits_;
  const nanoseconds deadline_;
  int embedded_ = 0;
};

}  // namespace

bool sameApplicationName(std::string_view name, std::string_view appId) {
  // Compared without case or punctuation, whole or by the app id's last
  // part: "Chromium" is chromium, "kate" is org.kde.kate.
  const auto folded = [](std::string_view text) {
    std::string out;
    for (const char c : text) {
      if (std::isalnum(static_cast<unsigned char>(c))) {
        out.push_back(static_cast<char>(
            std::tolower(static_cast<unsigned char>(c))));
      }
    }
    return out;
  };
  const std::string wanted = folded(name);
  if (wanted.empty()) return false;
  const size_t dot = appId.rfind('.');
  return wanted == folded(appId) ||
         (dot != std::string_view::npos &&
          wanted == folded(appId.substr(dot + 1)));
}

AtspiRead readSelectedText(AtspiBus& bus, std::optional<pid_t> pid,
                           const AtspiReadLimits& limits,
                           std::optional<std::string> activeAppId) {
  const nanoseconds deadline = bus.now() + limits.budget;
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
    if (!pid) {
      candidates.push_back(application);
      continue;
    }
    const auto process = bus.processOf(application.bus, deadline);
    if (process.status == BusStatus::kOk && process.value == *pid) {
      candidates.push_back(application);
    }
  }
  // Some toolkits (GTK before 4.10) never mark a window active: then the
  // application the compositor names active is taken by its name, from its
  // root. Only when no application has an active window.
  std::vector<AccessibleRef> named;
  if (!pid && activeAppId) {
    for (const AccessibleRef& application : candidates) {
      const auto name = bus.name(application, deadline);
      if (name.status == BusStatus::kOk &&
          sameApplicationName(name.value, *activeAppId)) {
        named.push_back(application);
      }
    }
  }
  // A process without an application on the bus has no accessibility.
  result.error = kAXErrorAPIDisabled;
  bool anyActive = false;
  for (size_t index = 0; index < candidates.size() + named.size(); ++index) {
    const bool byName = index >= candidates.size();
    if (byName && anyActive) break;
    const AccessibleRef& root =
        byName ? named[index - candidates.size()] : candidates[index];
    // Each window keeps its focused widget: the active one's counts.
    const auto window = byName ? BusReply<AccessibleRef>{BusStatus::kOk, {}}
                               : activeWindow(bus, root, limits, deadline);
    if (window.status == BusStatus::kTimedOut) {
      // Unknown processes are asked in turn: a frozen one is passed over.
      if (!pid) continue;
      result.error = kAXErrorCannotComplete;
      return result;
    }
    if (window.value.path.empty() && !pid && !byName) continue;
    anyActive = anyActive || !window.value.path.empty();
    const AccessibleRef& top = window.value.path.empty() ? root : window.value;
    // The focused element is the first focused object with a text: some
    // toolkits (Qt) also mark the current tab of a tab bar focused.
    FocusSearch search(bus, top, limits, deadline);
    AccessibleRef element;
    BusReply<std::vector<TextRange>> ranges;
    result.error = kAXErrorNoValue;
    for (int tried = 0; tried < kMaxFocusedObjects && element.path.empty();
         ++tried) {
      const auto focus = search.next();
      if (focus.status == BusStatus::kTimedOut) {
        result.error = kAXErrorCannotComplete;
        return result;
      }
      if (focus.value.path.empty()) break;
      ranges = bus.selections(focus.value, deadline);
      if (ranges.status == BusStatus::kTimedOut) {
        result.error = kAXErrorCannotComplete;
        return result;
      }
      // Focused, but no text to select in.
      if (ranges.status != BusStatus::kOk) {
        result.error = kAXErrorAPIDisabled;
        continue;
      }
      element = focus.value;
    }
    if (element.path.empty()) {
      if ((!pid && !byName) || result.error != kAXErrorNoValue) return result;
      continue;
    }
    result.source = describe(bus, root, deadline);
    std::string text;
    result.error = SelectedText(bus, limits, deadline)
                       .appendRanges(element, ranges.value, 0, text);
    if (result.error != kAXErrorSuccess) return result;
    if (text.empty()) {
      result.error = kAXErrorNoValue;
      return result;
    }
    result.text = std::move(text);
    return result;
  }
  return result;
}

}  // namespace tovrin
