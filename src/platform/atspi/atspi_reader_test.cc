#include "platform/atspi/atspi_reader.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

/// The byte at which character `offset` of UTF-8 `text` starts, as AT-SPI
/// counts offsets; the end for -1 or past it.
size_t byteOf(const std::string& text, int32_t offset) {
  for (size_t i = 0; i < text.size() && offset >= 0; ++i) {
    if ((text[i] & 0xC0) != 0x80 && offset-- == 0) return i;
  }
  return text.size();
}

/// The character of `text` that starts `units` UTF-16 units in, as Chromium
/// counts; -1 inside a surrogate pair or past the end.
int32_t characterAtUnit(const std::string& text, int32_t units) {
  int32_t character = 0;
  for (size_t i = 0; i < text.size() && units > 0; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0) == 0x80) continue;
    // Four UTF-8 bytes make a surrogate pair.
    units -= byte >= 0xF0 ? 2 : 1;
    ++character;
  }
  return units == 0 ? character : -1;
}

/// One object of an application. `flags`: F focused, A a window that has
/// the keyboard, Z frozen, N without Text, - not there. `links`: the objects
/// its embedded-object characters stand for, by character offset.
struct Node {
  bool is(char flag) const { return flags.find(flag) != std::string::npos; }
  std::string path, parent = "", flags = "", text = "";
  std::vector<TextRange> selections = {};
  std::map<int32_t, std::string> links = {};
  int32_t caret = -1;
};

// What a missing object answers for, and what the application does.
const Node kNowhere = {"", "", "-"}, kAnywhere = {""};

/// An accessibility bus held in memory. Every call costs `callCost` of its
/// clock; a call to a frozen object waits until its deadline.
class FakeAtspiBus : public AtspiBus {
 public:
  struct Application {
    std::string bus;
    pid_t pid;
    std::string name, toolkit;
    std::vector<Node> nodes;  // "/root" first, children in their order
    Node& operator[](const std::string& path) {
      return *std::find_if(nodes.begin(), nodes.end(),
                           [&](const Node& node) { return node.path == path; });
    }
  };

  Application& add(Application application) {
    return applications_.emplace_back(std::move(application));
  }

  nanoseconds now() override { return now_; }
  BusReply<std::vector<AccessibleRef>> applications(
      nanoseconds deadline) override {
    std::vector<AccessibleRef> roots;
    for (const auto& app : applications_) roots.push_back({app.bus, "/root"});
    return reply(kAnywhere, deadline, registryUp, roots);
  }
  BusReply<pid_t> processOf(const std::string& bus,
                            nanoseconds deadline) override {
    return reply(kAnywhere, deadline, true, app(bus).pid);
  }
  BusReply<std::vector<AccessibleRef>> focusedDescendants(
      const AccessibleRef& root, nanoseconds deadline) override {
    // The first four in tree order, under `root` only.
    std::vector<AccessibleRef> found, stack = {root};
    while (!stack.empty() && found.size() < 4) {
      const AccessibleRef object = stack.back();
      stack.pop_back();
      if (find(object).is('F')) found.push_back(object);
      const auto below = childrenOf(object);
      stack.insert(stack.end(), below.rbegin(), below.rend());
    }
    return reply(find(root), deadline, collection, found);
  }
  BusReply<std::vector<CachedObject>> cachedObjects(
      const std::string& bus, nanoseconds deadline) override {
    std::vector<CachedObject> items;
    for (const Node& node : app(bus).nodes) {
      items.push_back({{bus, node.path},
                       {bus, node.parent},
                       states({bus, node.path}, deadline).value});
    }
    return reply(find({bus, "/root"}), deadline, cache, items);
  }
  BusReply<std::vector<AccessibleRef>> children(
      const AccessibleRef& object, nanoseconds deadline) override {
    return reply(find(object), deadline, true, childrenOf(object));
  }
  BusReply<std::vector<uint32_t>> states(const AccessibleRef& object,
                                         nanoseconds deadline) override {
    const Node& node = find(object);
    // Other states set around FOCUSED, as real objects have them.
    uint32_t word = (1u << 8) | (1u << 11);
    if (node.is('F')) word |= 1u << kAtspiStateFocused;
    if (node.is('A')) word |= 1u << kAtspiStateActive;
    return reply(node, deadline, true, std::vector<uint32_t>{word, 0});
  }
  BusReply<std::vector<TextRange>> selections(const AccessibleRef& object,
                                              nanoseconds deadline) override {
    const Node& node = find(object);
    std::vector<TextRange> ranges = node.selections;
    if (app(object.bus).toolkit == "Chromium") {
      // Chromium takes each end for a count of UTF-16 units and reports
      // the characters within them; (0, 0) where that splits a pair.
      for (TextRange& range : ranges) {
        range = {characterAtUnit(node.text, range.first),
                 characterAtUnit(node.text, range.second)};
        if (range.first < 0 || range.second < 0) range = {0, 0};
      }
    }
    return reply(node, deadline, !node.is('N'), ranges);
  }
  BusReply<std::string> text(const AccessibleRef& object, TextRange range,
                             nanoseconds deadline) override {
    const Node& node = find(object);
    const size_t begin = byteOf(node.text, range.first),
                 end = std::max(begin, byteOf(node.text, range.second));
    return reply(node, deadline, !node.is('N'),
                 node.text.substr(begin, end - begin));
  }
  BusReply<std::string> name(const AccessibleRef& object,
                             nanoseconds deadline) override {
    return reply(kAnywhere, deadline, true, app(object.bus).name);
  }
  BusReply<int32_t> caretOffset(const AccessibleRef& object,
                                nanoseconds deadline) override {
    const Node& node = find(object);
    return reply(node, deadline, !node.is('N'), node.caret);
  }
  BusReply<std::string> toolkitName(const AccessibleRef& root,
                                    nanoseconds deadline) override {
    return reply(kAnywhere, deadline, true, app(root.bus).toolkit);
  }
  BusReply<AccessibleRef> embeddedObject(const AccessibleRef& object,
                                         int32_t offset,
                                         nanoseconds deadline) override {
    const Node& node = find(object);
    // Chromium's GetLinkIndex counts UTF-16 units.
    if (app(object.bus).toolkit == "Chromium") {
      offset = characterAtUnit(node.text, offset);
    }
    const auto link = node.links.find(offset);
    const bool linked = link != node.links.end();
    return reply(node, deadline, linked,
                 AccessibleRef{object.bus, linked ? link->second : ""});
  }

  bool registryUp = true, collection = true, cache = false;
  nanoseconds callCost = milliseconds(1);
  AtspiReadLimits limits;  // what the test reads with

 private:
  Application& app(const std::string& bus) {
    return *std::find_if(applications_.begin(), applications_.end(),
                         [&](const Application& a) { return a.bus == bus; });
  }
  const Node& find(const AccessibleRef& object) {
    for (const Node& node : app(object.bus).nodes) {
      if (node.path == object.path) return node;
    }
    return kNowhere;
  }
  std::vector<AccessibleRef> childrenOf(const AccessibleRef& object) {
    std::vector<AccessibleRef> refs;
    for (const Node& node : app(object.bus).nodes) {
      if (node.parent == object.path) refs.push_back({object.bus, node.path});
    }
    return refs;
  }
  /// Spends one call on `node`: timed out when it is frozen or the call
  /// ends past `deadline`, else `value` when `available` and `node` there.
  template <typename T>
  BusReply<T> reply(const Node& node, nanoseconds deadline, bool available,
                    T value) {
    if (node.is('Z') || now_ + callCost > deadline) {
      now_ = std::max(now_, deadline);
      return {BusStatus::kTimedOut};
    }
    now_ += callCost;
    if (!available || node.is('-')) return {};
    return {BusStatus::kOk, std::move(value)};
  }

  nanoseconds now_ = milliseconds(1000);
  std::deque<Application> applications_;
};

using Bus = FakeAtspiBus;
using App = FakeAtspiBus::Application;

/// A text editor named as its bus: a window with a menu and a pane, which
/// holds the focused view of "hello " and `word`, `word` selected.
App& editor(Bus& bus, const std::string& name = ":1.7", pid_t pid = 42,
            const std::string& word = "world") {
  const int32_t end = 6 + static_cast<int32_t>(word.size());
  return bus.add({name, pid, name, "GTK",
                  {{"/root"}, {"/window", "/root"}, {"/menu", "/window"},
                   {"/pane", "/window"},
                   {"/view", "/pane", "F", "hello " + word, {{6, end}}}}});
}

/// An editor of process 42 with a second window, of a focused "second",
/// and after it Mousepad of process 43 with "other": no window active but
/// the editor's second when `secondActive`.
App& twoApps(Bus& bus, bool secondActive) {
  App& first = editor(bus, ":1.7", 42, "first");
  first.nodes.insert(first.nodes.end(),
                     {{"/window2", "/root", secondActive ? "A" : ""},
                      {"/pane2", "/window2"},
                      {"/view2", "/pane2", "F", "second", {{0, 6}}}});
  App& mousepad = editor(bus, ":1.9", 43, "other");
  mousepad.name = "Mousepad";
  return mousepad;
}

/// A web page as Chromium shows it: the document holds its paragraphs as
/// embedded objects, and a paragraph holds its link as one too.
App& browser(Bus& bus) {
  return bus.add(
      {":1.3", 42, "Chromium", "Chromium",
       {{"/root"},
        {"/document", "/root", "F", "\uFFFC\uFFFC\uFFFC", {{0, 3}},
         {{0, "/p1"}, {1, "/image"}, {2, "/p2"}}},
        {"/p1", "/document", "", "First caf\u00e9", {{6, 10}}},
        {"/image", "/document", "N"},
        {"/p2", "/document", "",
         "Second \U0001F44D\U0001F3FD \uFFFC line \U0001F600", {{0, 18}},
         {{10, "/link"}}},
        // A link tells no selection of its own: all of it is inside.
        {"/link", "/p2", "", "bold"}}});
}

/// Makes `path` of Chromium's page the last paragraph, "end 😀", selected
/// whole, with the caret at `caret`: an end Chromium cannot count.
void lastParagraph(App& app, const std::string& path, int32_t caret) {
  Node& node = app[path];
  node.text = "end \U0001F600";
  node.selections = {{0, 5}};
  node.links = {};
  node.caret = caret;
}

/// An editor without Collection whose focus comes after 2000 other
/// objects, each call costing `callCost`.
void hugeEditor(Bus& bus, nanoseconds callCost) {
  App& app = editor(bus);
  app["/pane"].parent = "/menu";
  for (int i = 0; i < 2000; ++i) {
    app.nodes.insert(app.nodes.begin() + 3, {"/item" + std::to_string(i),
                                             "/menu"});
  }
  bus.collection = bus.cache = false;
  bus.callCost = callCost;
}

TEST(AtspiReaderTest, ReadsTheSelectionOfTheFocusedElementOrSaysWhyNot) {
  struct Case {
    const char* name;
    AXError error;
    std::string text;
    std::function<void(Bus&)> setUp;
    std::optional<pid_t> pid = 42;
    std::optional<std::string> appId = {};
    std::string source = "";  // checked when not empty
  };
  const auto ok = kAXErrorSuccess, disabled = kAXErrorAPIDisabled,
             none = kAXErrorNoValue, late = kAXErrorCannotComplete;
  const std::optional<pid_t> anyPid = std::nullopt;
  const Case cases[] = {
      // Another application also holds focus and a selection of its own:
      // each toplevel keeps its focused widget.
      {"of the focused process only", ok, "world",
       [](Bus& b) { editor(b, ":1.5", 41, "elsewhere"), editor(b); }, 42, {},
       ":1.7 (GTK)"},
      // Qt marks the current tab of a tab bar focused too, ahead of the text.
      {"a focused object without Text passed over", ok, "world", [](Bus& b) {
         auto& nodes = editor(b).nodes;
         nodes.insert(nodes.begin() + 2, {"/tab", "/window", "FN"});
       }},
      {"selections joined, empty ones skipped", ok, "hello\nworld", [](Bus& b) {
         editor(b)["/view"].selections = {{0, 5}, {3, 3}, {6, 11}};
       }},
      {"the first focus in tree order", ok, "first",
       [](Bus& b) { twoApps(b, false); }},
      {"the active window's focus", ok, "second",
       [](Bus& b) { twoApps(b, true); }},
      // Wayland tells no process: the application with the active window.
      {"any process: the other's active window", ok, "other",
       [](Bus& b) { twoApps(b, false)["/window"].flags = "A"; }, anyPid, {},
       "Mousepad (GTK)"},
      // GTK before 4.10 marks no window active: the compositor names the
      // active application by its app id.
      {"no active window: the app id's", ok, "other",
       [](Bus& b) { twoApps(b, false); }, anyPid, "org.xfce.mousepad"},
      {"no active window: an app id of none", disabled, "",
       [](Bus& b) { twoApps(b, false); }, anyPid, "org.gnome.TextEditor"},
      {"an active window before the app id", ok, "second",
       [](Bus& b) { twoApps(b, true); }, anyPid, "org.xfce.mousepad"},
      // Chromium's own count of selections and links, by its toolkit: an
      // Electron application is named after itself.
      {"embedded objects replaced by their text", ok,
       "caf\u00e9\nSecond \U0001F44D\U0001F3FD bold line \U0001F600",
       [](Bus& b) { browser(b).name = "Signal"; }, 42, {}, "Signal (Chromium)"},
      {"Chromium's uncounted end told by the caret", ok,
       "caf\u00e9\nend \U0001F600",
       [](Bus& b) { lastParagraph(browser(b), "/p2", 5); }},
      {"Chromium's uncounted end without the caret", none, "",
       [](Bus& b) { lastParagraph(browser(b), "/p2", -1); }},
      {"Chromium's uncounted end, a caret it could have counted", none, "",
       [](Bus& b) { lastParagraph(browser(b), "/p2", 4); }},
      {"Chromium's uncounted ends within one object", none, "", [](Bus& b) {
         browser(b)["/document"] = {"/document", "/root", "F",
                                    "a\U0001F600b\U0001F600", {{0, 2}}, {}, 2};
       }},
      {"GTK's offsets are characters", ok, "hello \U0001F44D\U0001F3FD world",
       [](Bus& b) {
         Node& view = editor(b)["/view"];
         view.text = "\U0001F600 hello \U0001F44D\U0001F3FD world";
         view.selections = {{2, 16}};
       }},
      // Beyond the limits a selection is left to the next source, which
      // takes it whole.
      {"more embedded objects than the limit", none, "",
       [](Bus& b) { browser(b), b.limits.maxEmbedded = 3; }},
      {"embedded objects nested too deep", none, "",
       [](Bus& b) { browser(b), b.limits.maxEmbeddedDepth = 1; }},
      {"an embedded object freezes", late, "",
       [](Bus& b) { browser(b)["/link"].flags = "Z"; }},
      {"the registry does not answer", disabled, "",
       [](Bus& b) { editor(b), b.registryUp = false; }},
      {"the focused element has no Text", disabled, "",
       [](Bus& b) { editor(b)["/view"].flags = "FN"; }},
      {"nothing focused", none, "",
       [](Bus& b) { editor(b)["/view"].flags = ""; }},
      {"nothing selected", none, "",
       [](Bus& b) { editor(b)["/view"].selections = {}; }},
      {"the application freezes", late, "",
       [](Bus& b) { editor(b)["/root"].flags = "Z"; }},
      {"the focused element freezes", late, "",
       [](Bus& b) { editor(b)["/view"].flags = "FZ"; }},
      {"a huge tree walked only so far", none, "",
       [](Bus& b) { hugeEditor(b, std::chrono::microseconds(100)); }},
      {"a slow tree given up at the budget", late, "",
       [](Bus& b) { hugeEditor(b, milliseconds(20)); }},
  };
  for (const Case& c : cases) {
    // Through Collection, from the cache, by walking.
    for (const auto& [how, collection, cache] :
         {std::tuple{"", true, false}, std::tuple{", from the cache", false, true},
          std::tuple{", walking", false, false}}) {
      SCOPED_TRACE(std::string(c.name) + how);
      Bus bus;
      bus.collection = collection;
      bus.cache = cache;
      c.setUp(bus);
      const nanoseconds start = bus.now();
      const AtspiRead read = readSelectedText(bus, c.pid, bus.limits, c.appId);
      EXPECT_EQ(read.error, c.error);
      EXPECT_EQ(read.text, c.text);
      if (!c.source.empty()) {
        EXPECT_EQ(read.source, c.source);
      }
      EXPECT_LE(bus.now() - start, bus.limits.budget);
    }
  }
}

TEST(AtspiReaderTest, AnApplicationIsKnownByItsAppIdOrItsLastPart) {
  EXPECT_TRUE(sameApplicationName("Chromium", "chromium"));
  EXPECT_TRUE(sameApplicationName("kate", "org.kde.kate"));
  EXPECT_TRUE(sameApplicationName("Text Editor", "org.gnome.TextEditor"));
  EXPECT_FALSE(
      sameApplicationName("gnome-text-editor", "org.gnome.TextEditor"));
  EXPECT_FALSE(sameApplicationName("kde", "org.kde.kate"));
  EXPECT_FALSE(sameApplicationName("", "foot"));
  EXPECT_FALSE(sameApplicationName("--", ""));
}

}  // namespace
}  // namespace tovrin
