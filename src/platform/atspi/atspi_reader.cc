#include "platform/atspi/atspi_reader.h"

#include <cctype>

#include <algorithm>
#include <map>

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
/// limits, a level at a time: the objects of one level are asked together.
/// An application without Collection is rare and its tree can be large:
/// the walk stops rather than spend the budget.
class FocusWalk {
 public:
  FocusWalk(AtspiBus& bus, const AccessibleRef& top,
            const AtspiReadLimits& limits, nanoseconds deadline)
      : bus_(bus), limits_(limits), deadline_(deadline), next_{top} {}

  /// The next focused object; an empty path when there is none left.
  BusReply<AccessibleRef> next() {
    for (;;) {
      while (index_ < level_.size()) {
        const size_t at = index_++;
        const ObjectFacts& facts = facts_[at];
        if (facts.states.status == BusStatus::kTimedOut ||
            facts.children.status == BusStatus::kTimedOut) {
          return {BusStatus::kTimedOut};
        }
        // An object that vanished under the walk is passed over.
        if (facts.states.status == BusStatus::kOk &&
            hasState(facts.states.value, kAtspiStateFocused)) {
          return {BusStatus::kOk, level_[at]};
        }
      }
      if (next_.empty() || visited_ >= limits_.maxNodes) {
        return {BusStatus::kOk, AccessibleRef{}};
      }
      level_ = std::move(next_);
      next_.clear();
      if (level_.size() > static_cast<size_t>(limits_.maxNodes - visited_)) {
        level_.resize(static_cast<size_t>(limits_.maxNodes - visited_));
      }
      visited_ += static_cast<int>(level_.size());
      facts_ = bus_.survey(level_, depth_++ < limits_.maxDepth, deadline_);
      index_ = 0;
      for (const ObjectFacts& facts : facts_) {
        const auto& children = facts.children.value;
        next_.insert(next_.end(), children.begin(), children.end());
      }
    }
  }

 private:
  AtspiBus& bus_;
  const AtspiReadLimits& limits_;
  const nanoseconds deadline_;
  std::vector<AccessibleRef> level_, next_;
  std::vector<ObjectFacts> facts_;
  size_t index_ = 0;
  int visited_ = 0, depth_ = 0;
};

/// The top-level window of the application at `root` that has the
/// keyboard; an empty path when none has. The windows are asked together.
/// When the application is known to be the focused one, its only window
/// is taken without asking.
BusReply<AccessibleRef> activeWindow(AtspiBus& bus, const AccessibleRef& root,
                                     const AtspiReadLimits& limits,
                                     bool known, nanoseconds deadline) {
  auto windows = bus.children(root, deadline);
  if (windows.status == BusStatus::kTimedOut) return {BusStatus::kTimedOut};
  if (known && windows.value.size() == 1) {
    return {BusStatus::kOk, windows.value[0]};
  }
  if (windows.value.size() > static_cast<size_t>(limits.maxFrames)) {
    windows.value.resize(static_cast<size_t>(limits.maxFrames));
  }
  const auto facts = bus.survey(windows.value, false, deadline);
  for (size_t i = 0; i < facts.size(); ++i) {
    const auto& states = facts[i].states;
    if (states.status == BusStatus::kTimedOut) return {BusStatus::kTimedOut};
    if (states.status == BusStatus::kOk &&
        hasState(states.value, kAtspiStateActive)) {
      return {BusStatus::kOk, windows.value[i]};
    }
  }
  return {BusStatus::kOk, AccessibleRef{}};
}

/// The focused objects that `cache` lists under `top` of the application
/// at `root`, in its order. An object whose ancestry, as far as the cache
/// tells it, reaches the root but not `top` is in another window.
std::vector<AccessibleRef> focusedInCache(
    const std::vector<CachedObject>& cache, const AccessibleRef& top,
    const AccessibleRef& root) {
  std::map<std::string, const AccessibleRef*> parents;
  for (const CachedObject& item : cache) {
    parents[item.object.path] = &item.parent;
  }
  std::vector<AccessibleRef> focused;
  for (const CachedObject& item : cache) {
    if (!hasState(item.states, kAtspiStateFocused)) continue;
    std::string path = item.object.path;
    // A cycle or a deep chain ends the climb: the object is taken.
    for (int step = 0; step < 64 && path != top.path; ++step) {
      if (path == root.path) break;
      const auto parent = parents.find(path);
      if (parent == parents.end()) break;
      path = parent->second->path;
    }
    if (path == root.path && top.path != root.path) continue;
    focused.push_back(item.object);
  }
  return focused;
}

/// The focused objects under `top`, in tree order: through Collection
/// where the application has it, else from its cache (GTK 4 has no
/// Collection; its cache lists the objects with their states in one
/// call), else by walking.
class FocusSearch {
 public:
  FocusSearch(AtspiBus& bus, const AccessibleRef& top,
              const AccessibleRef& root, const AtspiReadLimits& limits,
              nanoseconds deadline)
      : matches_(bus.focusedDescendants(top, deadline)) {
    if (matches_.status != BusStatus::kUnavailable) return;
    const auto cache = bus.cachedObjects(top.bus, deadline);
    if (cache.status == BusStatus::kTimedOut) {
      matches_ = {BusStatus::kTimedOut};
      return;
    }
    if (cache.status == BusStatus::kOk) {
      matches_ = {BusStatus::kOk, focusedInCache(cache.value, top, root)};
      if (!matches_.value.empty()) return;
    }
    walk_.emplace(bus, top, limits, deadline);
  }

  /// The next focused object; an empty path when there is none left.
  BusReply<AccessibleRef> next() {
    if (index_ < matches_.value.size()) {
      return {BusStatus::kOk, matches_.value[index_++]};
    }
    if (walk_) return walk_->next();
    if (matches_.status != BusStatus::kOk) return {matches_.status};
    return {BusStatus::kOk};
  }

 private:
  BusReply<std::vector<AccessibleRef>> matches_;
  std::optional<FocusWalk> walk_;
  size_t index_ = 0;
};

/// What AT-SPI says of an application: its name and toolkit.
struct Description {
  std::string name, toolkit;
  /// For the log, e.g. "mousepad (gtk)".
  std::string source;
};

Description describe(AtspiBus& bus, const AccessibleRef& root,
                     nanoseconds deadline) {
  Description description;
  const auto found = bus.properties(
      {{root, TextProperty::kName}, {root, TextProperty::kToolkitName}},
      deadline);
  if (found[0].status == BusStatus::kOk) description.name = found[0].value;
  if (found[1].status == BusStatus::kOk) description.toolkit = found[1].value;
  description.source =
      description.name.empty() ? root.bus : description.name;
  if (!description.toolkit.empty()) {
    description.source += " (" + description.toolkit + ")";
  }
  return description;
}

/// Whether `byte` starts a character: a byte that does not continue a
/// UTF-8 sequence starts one (invalid bytes each count as one, as the
/// repair to valid UTF-8 later makes them).
bool startsCharacter(unsigned char byte) { return (byte & 0xC0) != 0x80; }

/// The UTF-16 units of the character that `lead` starts.
int32_t utf16Units(unsigned char lead) {
  return lead >= 0xF0 && lead <= 0xF4 ? 2 : 1;
}

/// Which ends of an object the selection runs through: an embedded object
/// inside its parent's selection is entered from before, or left after,
/// or both (then it is selected whole).
struct Sides {
  bool start = false;
  bool end = false;
};

/// Gathers the selected text of an element. Web content keeps its blocks
/// (paragraphs, list items) as children, each standing in the parent's
/// text as one embedded-object character: those are replaced by the
/// selected part of the object they stand for.
class SelectedText {
 public:
  SelectedText(AtspiBus& bus, const AtspiReadLimits& limits,
               nanoseconds deadline, bool chromium)
      : bus_(bus), limits_(limits), deadline_(deadline), chromium_(chromium) {}

  /// Appends the text of each non-empty range of `object`, joined by line
  /// breaks.
  AXError appendRanges(const AccessibleRef& object,
                       const std::vector<TextRange>& ranges, int depth,
                       std::string& out, Sides sides = {}) {
    bool first = true;
    for (const TextRange& range : ranges) {
      const bool empty = range.second <= range.first && range.second != -1;
      // Chromium hands out an empty range where it cannot count (see
      // chromiumSelection); an empty selection it does not report at all.
      if (empty && !chromium_) continue;
      if (!first) out += '\n';
      first = false;
      const AXError error = chromium_
                                ? appendChromiumRange(object, range, empty,
                                                      sides, depth, out)
                                : appendText(object, range, depth, out);
      if (error != kAXErrorSuccess) return error;
    }
    return kAXErrorSuccess;
  }

 private:
  AXError appendText(const AccessibleRef& object, TextRange range, int depth,
                     std::string& out) {
    const auto part = bus_.text(object, range, deadline_);
    if (part.status != BusStatus::kOk) return errorFor(part.status);
    return appendSlice(object, part.value, range.first, {range.first, -1},
                       {true, true}, depth, out);
  }

  /// Appends what Chromium means by the selection it reported for
  /// `object`. Where it reported nothing that can be counted, an end that
  /// the selection runs through is the object's own, and the other is the
  /// caret, which Chromium counts right, when the caret is in the object.
  AXError appendChromiumRange(const AccessibleRef& object, TextRange reported,
                              bool empty, Sides sides, int depth,
                              std::string& out) {
    if (empty && sides.start && sides.end) reported = {0, -1}, empty = false;
    int32_t caret = -1;
    if (empty) {
      if (!sides.start && !sides.end) return kAXErrorNoValue;
      const auto found = bus_.caretOffset(object, deadline_);
      if (found.status != BusStatus::kOk) return errorFor(found.status);
      caret = found.value;
      if (caret < 0) return kAXErrorNoValue;
    }
    // The text from its start: both ends of the true selection lie within
    // twice the reported end, as no character is more than two units.
    const int32_t end = reported.second;
    TextRange fetch = {0, -1};
    if (!empty && end != -1 && end < INT32_MAX / 2) fetch.second = 2 * end;
    const auto part = bus_.text(object, fetch, deadline_);
    if (part.status != BusStatus::kOk) return errorFor(part.status);
    TextRange range = reported;
    if (empty) {
      range = {sides.start ? 0 : caret, sides.end ? -1 : caret};
      // Only a selection that Chromium could not have counted is taken.
      TextRange whole = range;
      if (whole.second == -1) {
        whole.second = 0;
        for (const char c : part.value) {
          whole.second += startsCharacter(static_cast<unsigned char>(c));
        }
      }
      if (whole.second <= whole.first ||
          chromiumReport(part.value, whole) != TextRange{0, 0}) {
        return kAXErrorNoValue;
      }
    } else if (reported.second != -1) {
      const auto counted = chromiumSelection(part.value, reported);
      if (!counted) return kAXErrorNoValue;
      range = *counted;
    }
    return appendSlice(object, part.value, 0, range, sides, depth, out);
  }

  /// Appends the characters of `range` of `text` (to its end for -1),
  /// `text` starting at character `textStart` of `object`'s, each
  /// embedded-object character replaced by the text of its object.
  AXError appendSlice(const AccessibleRef& object, std::string_view text,
                      int32_t textStart, TextRange range, Sides sides,
                      int depth, std::string& out) {
    int32_t offset = textStart, units = 0;
    size_t copied = text.size(), stop = text.size();
    bool afterObject = false;
    for (size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (!startsCharacter(byte)) continue;
      if (offset == range.second) {
        stop = i;
        break;
      }
      if (offset == range.first) copied = i;
      if (copied <= i && text.substr(i, kEmbeddedObjectCharacter.size()) ==
                             kEmbeddedObjectCharacter) {
        if (i > copied) afterObject = false;
        out.append(text.substr(copied, i - copied));
        // Objects inside the range are selected whole; those at its ends
        // are entered or left as the range is.
        const size_t next = i + kEmbeddedObjectCharacter.size();
        const bool last = offset + 1 == range.second ||
                          (range.second == -1 && next == text.size());
        const Sides inner = {sides.start || offset > range.first,
                             sides.end || !last};
        const AXError error =
            appendEmbedded(object, chromium_ ? units : offset, inner, depth,
                           afterObject, out);
        if (error != kAXErrorSuccess) return error;
        afterObject = true;
        copied = next;
      }
      ++offset;
      units += utf16Units(byte);
    }
    if (copied < stop) out.append(text.substr(copied, stop - copied));
    return kAXErrorSuccess;
  }

  /// Appends the selected text of the object embedded at `offset` of
  /// `parent`; all of its text when it tells no selection of its own.
  /// Objects side by side are blocks: a line break parts them.
  AXError appendEmbedded(const AccessibleRef& parent, int32_t offset,
                         Sides sides, int depth, bool afterObject,
                         std::string& out) {
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
    if (ranges.value.empty() ||
        (!chromium_ && std::none_of(ranges.value.begin(), ranges.value.end(),
                                    [](const TextRange& range) {
                                      return range.second > range.first;
                                    }))) {
      ranges.value = {{0, -1}};
      sides = {true, true};
    }
    if (afterObject && !out.empty() && out.back() != '\n') out += '\n';
    return appendRanges(child.value, ranges.value, depth + 1, out, sides);
  }

  AtspiBus& bus_;
  const AtspiReadLimits& limits_;
  const nanoseconds deadline_;
  const bool chromium_;
  int embedded_ = 0;
};

/// Whether the application of `toolkit` and `name` is Chromium or built on
/// it (Chrome, Electron), whose selections are counted its own way.
bool isChromium(std::string_view toolkit, std::string_view name) {
  return toolkit == "Chromium" || (toolkit.empty() && name == "Chromium");
}

}  // namespace

std::vector<BusReply<pid_t>> AtspiBus::processesOf(
    const std::vector<std::string>& busNames, nanoseconds deadline) {
  std::vector<BusReply<pid_t>> processes;
  for (const std::string& name : busNames) {
    processes.push_back(processOf(name, deadline));
  }
  return processes;
}

std::vector<BusReply<std::string>> AtspiBus::properties(
    const std::vector<std::pair<AccessibleRef, TextProperty>>& asked,
    nanoseconds deadline) {
  std::vector<BusReply<std::string>> values;
  for (const auto& [object, property] : asked) {
    values.push_back(property == TextProperty::kName
                         ? name(object, deadline)
                         : toolkitName(object, deadline));
  }
  return values;
}

std::vector<ObjectFacts> AtspiBus::survey(
    const std::vector<AccessibleRef>& objects, bool withChildren,
    nanoseconds deadline) {
  std::vector<ObjectFacts> facts;
  for (const AccessibleRef& object : objects) {
    ObjectFacts& fact = facts.emplace_back();
    fact.states = states(object, deadline);
    if (withChildren) fact.children = children(object, deadline);
  }
  return facts;
}

std::optional<TextRange> chromiumSelection(std::string_view text,
                                           TextRange reported) {
  if (reported.first < 0 || reported.second <= reported.first) {
    return std::nullopt;
  }
  // A reported end r stands for the UTF-16 offset of character r.
  TextRange range = {-1, -1};
  int32_t characters = 0, units = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && !startsCharacter(static_cast<unsigned char>(text[i]))) {
      continue;
    }
    if (characters == reported.first) range.first = units;
    if (characters == reported.second) range.second = units;
    if (i == text.size()) break;
    ++characters;
    units += utf16Units(static_cast<unsigned char>(text[i]));
  }
  if (range.first < 0 || range.second < 0 || range.second > characters) {
    return std::nullopt;
  }
  return range;
}

TextRange chromiumReport(std::string_view text, TextRange range) {
  // Each end e: the characters wholly within the first e UTF-16 units.
  const auto report = [text](int32_t end) -> std::optional<int32_t> {
    int32_t characters = 0, units = 0;
    for (size_t i = 0; i < text.size() && units < end; ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (!startsCharacter(byte)) continue;
      units += utf16Units(byte);
      ++characters;
    }
    if (units != end) return std::nullopt;
    return characters;
  };
  const auto first = report(range.first), second = report(range.second);
  if (!first || !second) return {0, 0};
  return {*first, *second};
}

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
  if (!pid) {
    candidates = applications.value;
  } else {
    std::vector<std::string> names;
    for (const AccessibleRef& application : applications.value) {
      names.push_back(application.bus);
    }
    const auto processes = bus.processesOf(names, deadline);
    for (size_t i = 0; i < processes.size(); ++i) {
      if (processes[i].status == BusStatus::kOk &&
          processes[i].value == *pid) {
        candidates.push_back(applications.value[i]);
      }
    }
  }
  if (bus.now() >= deadline) {
    result.error = kAXErrorCannotComplete;
    return result;
  }
  // Some toolkits (GTK before 4.10) never mark a window active: then the
  // application the compositor names active is taken by its name, from its
  // root. Only when no application has an active window.
  std::vector<AccessibleRef> named;
  if (!pid && activeAppId) {
    std::vector<std::pair<AccessibleRef, TextProperty>> asked;
    for (const AccessibleRef& application : candidates) {
      asked.emplace_back(application, TextProperty::kName);
    }
    const auto names = bus.properties(asked, deadline);
    for (size_t i = 0; i < names.size(); ++i) {
      if (names[i].status == BusStatus::kOk &&
          sameApplicationName(names[i].value, *activeAppId)) {
        named.push_back(candidates[i]);
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
                               : activeWindow(bus, root, limits, pid.has_value(), deadline);
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
    FocusSearch search(bus, top, root, limits, deadline);
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
    const Description application = describe(bus, root, deadline);
    result.source = application.source;
    std::string text;
    result.error = SelectedText(bus, limits, deadline,
                                isChromium(application.toolkit,
                                           application.name))
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
