#include "platform/atspi/atspi_reader.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

/// Characters `range.first` to `range.second` (-1: the end) of UTF-8
/// `text`, as AT-SPI counts offsets.
std::string characters(const std::string& text, TextRange range) {
  std::vector<size_t> starts;
  for (size_t i = 0; i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
      starts.push_back(i);
    }
  }
  starts.push_back(text.size());
  const auto at = [&](int32_t offset) {
    const size_t index = std::min<size_t>(offset, starts.size() - 1);
    return starts[index];
  };
  const size_t begin = at(range.first);
  const size_t end = range.second < 0 ? text.size() : at(range.second);
  return text.substr(begin, end > begin ? end - begin : 0);
}

/// An accessibility bus held in memory. Every call costs `callCost` of its
/// clock; a call to a frozen object waits until its deadline.
class FakeAtspiBus : public AtspiBus {
 public:
  struct Node {
    bool focused = false;
    std::vector<std::string> children;  // paths on the same bus
    bool hasText = true;
    std::string text;
    std::vector<TextRange> selections;
    bool frozen = false;
    bool active = false;  // a top-level window that has the keyboard
    /// The objects that the embedded-object characters of `text` stand
    /// for, by character offset.
    std::map<int32_t, std::string> embedded;
  };
  struct Application {
    pid_t pid = 0;
    std::string name;
    std::string toolkit;
    bool hasCollection = true;
    std::map<std::string, Node> nodes;  // "/root" is the root
  };

  /// Adds an application on the bus `bus`; its nodes are filled in after.
  Application& add(const std::string& bus, pid_t pid) {
    order_.push_back(bus);
    Application& application = applications_[bus];
    application.pid = pid;
    application.nodes["/root"];
    return application;
  }

  nanoseconds now() override { return now_; }

  BusReply<std::vector<AccessibleRef>> applications(
      nanoseconds deadline) override {
    if (!spend(deadline, false)) return {BusStatus::kTimedOut};
    if (!registryUp) return {};
    std::vector<AccessibleRef> roots;
    for (const auto& bus : order_) roots.push_back({bus, "/root"});
    return {BusStatus::kOk, roots};
  }
  BusReply<pid_t> processOf(const std::string& bus,
                            nanoseconds deadline) override {
    if (!spend(deadline, false)) return {BusStatus::kTimedOut};
    return {BusStatus::kOk, applications_.at(bus).pid};
  }
  BusReply<std::vector<AccessibleRef>> focusedDescendants(
      const AccessibleRef& root, nanoseconds deadline) override {
    const Application& application = applications_.at(root.bus);
    if (!spend(deadline, application.nodes.at(root.path).frozen)) {
      return {BusStatus::kTimedOut};
    }
    if (!application.hasCollection) return {};
    // The first four in tree order, under `root` only.
    std::vector<AccessibleRef> found;
    std::vector<std::string> stack = {root.path};
    while (!stack.empty() && found.size() < 4) {
      const std::string path = stack.back();
      stack.pop_back();
      const Node& node = application.nodes.at(path);
      if (node.focused) found.push_back({root.bus, path});
      stack.insert(stack.end(), node.children.rbegin(), node.children.rend());
    }
    return {BusStatus::kOk, found};
  }
  BusReply<std::vector<AccessibleRef>> children(
      const AccessibleRef& object, nanoseconds deadline) override {
    const Node* node = find(object);
    if (!spend(deadline, node != nullptr && node->frozen)) {
      return {BusStatus::kTimedOut};
    }
    if (node == nullptr) return {};
    std::vector<AccessibleRef> refs;
    for (const auto& path : node->children) refs.push_back({object.bus, path});
    return {BusStatus::kOk, refs};
  }
  BusReply<std::vector<uint32_t>> states(const AccessibleRef& object,
                                         nanoseconds deadline) override {
    ++stateQueries;
    const Node* node = find(object);
    if (!spend(deadline, node != nullptr && node->frozen)) {
      return {BusStatus::kTimedOut};
    }
    if (node == nullptr) return {};
    // Other states set around FOCUSED, as real objects have them.
    uint32_t word = (1u << 8) | (1u << 11);
    if (node->focused) word |= 1u << kAtspiStateFocused;
    if (node->active) word |= 1u << kAtspiStateActive;
    return {BusStatus::kOk, {word, 0}};
  }
  BusReply<std::vector<TextRange>> selections(const AccessibleRef& object,
                                              nanoseconds deadline) override {
    const Node* node = find(object);
    if (!spend(deadline, node != nullptr && node->frozen)) {
      return {BusStatus::kTimedOut};
    }
    if (node == nullptr || !node->hasText) return {};
    return {BusStatus::kOk, node->selections};
  }
  BusReply<std::string> text(const AccessibleRef& object, TextRange range,
                             nanoseconds deadline) override {
    const Node* node = find(object);
    if (!spend(deadline, false)) return {BusStatus::kTimedOut};
    if (node == nullptr || !node->hasText) return {};
    return {BusStatus::kOk, characters(node->text, range)};
  }
  BusReply<std::string> name(const AccessibleRef& object,
                             nanoseconds deadline) override {
    if (!spend(deadline, false)) return {BusStatus::kTimedOut};
    return {BusStatus::kOk, applications_.at(object.bus).name};
  }
  BusReply<std::string> toolkitName(const AccessibleRef& root,
                                    nanoseconds deadline) override {
    if (!spend(deadline, false)) return {BusStatus::kTimedOut};
    return {BusStatus::kOk, applications_.at(root.bus).toolkit};
  }
  BusReply<AccessibleRef> embeddedObject(const AccessibleRef& object,
                                         int32_t offset,
                                         nanoseconds deadline) override {
    const Node* node = find(object);
    if (!spend(deadline, false)) return {BusStatus::kTimedOut};
    if (node == nullptr) return {};
    const auto link = node->embedded.find(offset);
    if (link == node->embedded.end()) return {};
    return {BusStatus::kOk, {object.bus, link->second}};
  }

  bool registryUp = true;
  nanoseconds callCost = milliseconds(1);
  int stateQueries = 0;

 private:
  const Node* find(const AccessibleRef& object) const {
    const auto application = applications_.find(object.bus);
    if (application == applications_.end()) return nullptr;
    const auto node = application->second.nodes.find(object.path);
    return node == application->second.nodes.end() ? nullptr : &node->second;
  }
  /// Advances the clock by one call; false when the call timed out.
  bool spend(nanoseconds deadline, bool frozen) {
    if (frozen || now_ + callCost > deadline) {
      now_ = std::max(now_, deadline);
      return false;
    }
    now_ += callCost;
    return true;
  }

  nanoseconds now_ = milliseconds(1000);
  std::vector<std::string> order_;
  std::map<std::string, Application> applications_;
};

/// A text editor of process `pid`: a window, a scrolled pane and the text
/// view, which holds the focus and "hello world" with "world" selected.
FakeAtspiBus::Application& addEditor(FakeAtspiBus& bus, const std::string& name,
                                     pid_t pid, const std::string& text) {
  FakeAtspiBus::Application& editor = bus.add(name, pid);
  editor.name = name;
  editor.toolkit = "GTK";
  editor.nodes["/root"].children = {"/window"};
  editor.nodes["/window"].children = {"/menu", "/pane"};
  editor.nodes["/menu"];
  editor.nodes["/pane"].children = {"/view"};
  FakeAtspiBus::Node& view = editor.nodes["/view"];
  view.focused = true;
  view.text = "hello " + text;
  view.selections = {{6, 6 + static_cast<int32_t>(text.size())}};
  return editor;
}

TEST(AtspiReaderTest, ReadsTheFocusedElementOfTheFocusedProcessOnly) {
  for (const bool collection : {true, false}) {
    SCOPED_TRACE(collection ? "with Collection" : "by walking the tree");
    FakeAtspiBus bus;
    // Another application also holds focus and a selection of its own:
    // each toplevel keeps its focused widget.
    addEditor(bus, ":1.5", 41, "elsewhere").hasCollection = collection;
    addEditor(bus, ":1.7", 42, "world").hasCollection = collection;
    const AtspiRead read = readSelectedText(bus, 42);
    EXPECT_EQ(read.error, kAXErrorSuccess);
    EXPECT_EQ(read.text, "world");
    EXPECT_EQ(read.source, ":1.7 (GTK)");
  }
}

TEST(AtspiReaderTest, AFocusedObjectWithoutTextIsPassedOver) {
  for (const bool collection : {true, false}) {
    SCOPED_TRACE(collection ? "with Collection" : "by walking the tree");
    FakeAtspiBus bus;
    // Qt marks the current tab of a tab bar focused too, ahead of the text.
    FakeAtspiBus::Application& editor = addEditor(bus, ":1.7", 42, "world");
    editor.hasCollection = collection;
    editor.nodes["/window"].children.insert(
        editor.nodes["/window"].children.begin(), "/tab");
    editor.nodes["/tab"].focused = true;
    editor.nodes["/tab"].hasText = false;
    const AtspiRead read = readSelectedText(bus, 42);
    EXPECT_EQ(read.error, kAXErrorSuccess);
    EXPECT_EQ(read.text, "world");
  }
}

TEST(AtspiReaderTest, JoinsSeveralSelectionsAndSkipsEmptyOnes) {
  FakeAtspiBus bus;
  FakeAtspiBus::Node& view = addEditor(bus, ":1.7", 42, "world").nodes["/view"];
  view.selections = {{0, 5}, {3, 3}, {6, 11}};
  const AtspiRead read = readSelectedText(bus, 42);
  EXPECT_EQ(read.error, kAXErrorSuccess);
  EXPECT_EQ(read.text, "hello\nworld");
}

TEST(AtspiReaderTest, TheActiveWindowsFocusCountsAndWaylandFindsItsApplication) {
  FakeAtspiBus bus;
  // Two windows of one process, each with a focused text of its own.
  FakeAtspiBus::Application& editor = addEditor(bus, ":1.7", 42, "first");
  editor.nodes["/root"].children.push_back("/window2");
  editor.nodes["/window2"].children = {"/view2"};
  FakeAtspiBus::Node& view2 = editor.nodes["/view2"];
  view2.focused = true;
  view2.text = "second";
  view2.selections = {{0, 6}};
  // In tree order the first window's focus comes first.
  EXPECT_EQ(readSelectedText(bus, 42).text, "first");
  editor.nodes["/window2"].active = true;
  EXPECT_EQ(readSelectedText(bus, 42).text, "second");

  // No process known: the application with the active window answers.
  addEditor(bus, ":1.9", 43, "other");
  AtspiRead read = readSelectedText(bus, std::nullopt);
  EXPECT_EQ(read.error, kAXErrorSuccess);
  EXPECT_EQ(read.text, "second");
  editor.nodes["/window2"].active = false;
  bus.add(":1.9", 43).nodes["/window"].active = true;
  read = readSelectedText(bus, std::nullopt);
  EXPECT_EQ(read.text, "other");
  EXPECT_EQ(read.source, ":1.9 (GTK)");
  // None active: no application to ask.
  bus.add(":1.9", 43).nodes["/window"].active = false;
  read = readSelectedText(bus, std::nullopt);
  EXPECT_EQ(read.error, kAXErrorAPIDisabled);
  EXPECT_EQ(read.text, "");

  // None active, but the compositor names the active application (GTK
  // before 4.10 marks no window active): the application of that name.
  bus.add(":1.9", 43).name = "Mousepad";
  read = readSelectedText(bus, std::nullopt, {}, "org.xfce.mousepad");
  EXPECT_EQ(read.error, kAXErrorSuccess);
  EXPECT_EQ(read.text, "other");
  read = readSelectedText(bus, std::nullopt, {}, "org.gnome.TextEditor");
  EXPECT_EQ(read.error, kAXErrorAPIDisabled);
  // The name only stands in for an active window, never before one.
  editor.nodes["/window2"].active = true;
  read = readSelectedText(bus, std::nullopt, {}, "org.xfce.mousepad");
  EXPECT_EQ(read.text, "second");
}

TEST(AtspiReaderTest, AnApplicationIsKnownByItsAppIdOrItsLastPart) {
  EXPECT_TRUE(sameApplicationName("Chromium", "chromium"));
  EXPECT_TRUE(sameApplicationName("kate", "org.kde.kate"));
  EXPECT_TRUE(sameApplicationName("gnome-text-editor", "gnome-text-editor"));
  EXPECT_TRUE(sameApplicationName("Text Editor", "org.gnome.TextEditor"));
  EXPECT_FALSE(sameApplicationName("gnome-text-editor", "org.gnome.TextEditor"));
  EXPECT_FALSE(sameApplicationName("kde", "org.kde.kate"));
  EXPECT_FALSE(sameApplicationName("", "foot"));
  EXPECT_FALSE(sameApplicationName("--", ""));
}

/// A web page as Chromium shows it: the document holds its paragraphs as
/// embedded objects, and a paragraph holds its link as one too.
FakeAtspiBus::Application& addBrowser(FakeAtspiBus& bus) {
  FakeAtspiBus::Application& browser = bus.add(":1.3", 50);
  browser.name = "Chromium";
  browser.toolkit = "Chromium";
  browser.nodes["/root"].children = {"/document"};
  FakeAtspiBus::Node& document = browser.nodes["/document"];
  document.focused = true;
  document.text = "\uFFFC\uFFFC\uFFFC";
  document.selections = {{0, 3}};
  document.embedded = {{0, "/p1"}, {1, "/image"}, {2, "/p2"}};
  browser.nodes["/p1"].text = "First caf\u00e9";
  browser.nodes["/p1"].selections = {{6, 10}};
  browser.nodes["/image"].hasText = false;
  FakeAtspiBus::Node& p2 = browser.nodes["/p2"];
  p2.text = "Second \uFFFC line \U0001F600";
  p2.selections = {{0, 15}};
  p2.embedded = {{7, "/link"}};
  // A link tells no selection of its own: all of it is inside.
  browser.nodes["/link"].text = "bold";
  return browser;
}

TEST(AtspiReaderTest, EmbeddedObjectsAreReplacedByTheirSelectedText) {
  FakeAtspiBus bus;
  addBrowser(bus);
  AtspiRead read = readSelectedText(bus, 50);
  EXPECT_EQ(read.error, kAXErrorSuccess);
  EXPECT_EQ(read.text, "caf\u00e9\nSecond bold line \U0001F600");
  EXPECT_EQ(read.source, "Chromium (Chromium)");

  const std::pair<const char*, std::function<void(AtspiReadLimits&,
                                                  FakeAtspiBus::Application&)>>
      beyond[] = {
          {"more objects than the limit",
           [](AtspiReadLimits& limits, auto&) { limits.maxEmbedded = 3; }},
          {"nested deeper than the limit",
           [](AtspiReadLimits& limits, auto&) { limits.maxEmbeddedDepth = 1; }},
          {"an object that stands for itself",
           [](auto&, FakeAtspiBus::Application& browser) {
             browser.nodes["/p2"].embedded[7] = "/p2";
           }},
      };
  for (const auto& [name, setUp] : beyond) {
    SCOPED_TRACE(name);
    FakeAtspiBus page;
    AtspiReadLimits limits;
    setUp(limits, addBrowser(page));
    read = readSelectedText(page, 50, limits);
    // Left to the next source, which takes the selection whole.
    EXPECT_EQ(read.error, kAXErrorNoValue);
    EXPECT_EQ(read.text, "");
  }

  FakeAtspiBus frozen;
  addBrowser(frozen).nodes["/link"].frozen = true;
  read = readSelectedText(frozen, 50);
  EXPECT_EQ(read.error, kAXErrorCannotComplete);
}

TEST(AtspiReaderTest, MapsEachFailureToItsResultCode) {
  struct Case {
    const char* name;
    std::function<void(FakeAtspiBus&, FakeAtspiBus::Application&)> setUp;
    AXError expected;
  };
  const std::vector<Case> cases = {
      {"registry does not answer",
       [](FakeAtspiBus& bus, auto&) { bus.registryUp = false; },
       kAXErrorAPIDisabled},
      {"process has no application on the bus",
       [](auto&, FakeAtspiBus::Application& app) { app.pid = 7; },
       kAXErrorAPIDisabled},
      {"focused element has no Text",
       [](auto&, FakeAtspiBus::Application& app) {
         app.nodes["/view"].hasText = false;
       },
       kAXErrorAPIDisabled},
      {"nothing focused",
       [](auto&, FakeAtspiBus::Application& app) {
         app.nodes["/view"].focused = false;
       },
       kAXErrorNoValue},
      {"nothing focused, found by walking",
       [](auto&, FakeAtspiBus::Application& app) {
         app.hasCollection = false;
         app.nodes["/view"].focused = false;
       },
       kAXErrorNoValue},
      {"no selection",
       [](auto&, FakeAtspiBus::Application& app) {
         app.nodes["/view"].selections.clear();
       },
       kAXErrorNoValue},
      {"only empty selections",
       [](auto&, FakeAtspiBus::Application& app) {
         app.nodes["/view"].selections = {{4, 4}, {2, 2}};
       },
       kAXErrorNoValue},
      {"application frozen",
       [](auto&, FakeAtspiBus::Application& app) {
         app.nodes["/root"].frozen = true;
       },
       kAXErrorCannotComplete},
      {"application freezes during the walk",
       [](auto&, FakeAtspiBus::Application& app) {
         app.hasCollection = false;
         app.nodes["/pane"].frozen = true;
       },
       kAXErrorCannotComplete},
      {"focused element freezes",
       [](auto&, FakeAtspiBus::Application& app) {
         app.nodes["/view"].frozen = true;
       },
       kAXErrorCannotComplete},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeAtspiBus bus;
    c.setUp(bus, addEditor(bus, ":1.7", 42, "world"));
    const AtspiRead read = readSelectedText(bus, 42);
    EXPECT_EQ(read.error, c.expected);
    EXPECT_EQ(read.text, "");
  }
}

TEST(AtspiReaderTest, ASlowOrHugeTreeCostsBoundedTimeAndCalls) {
  // A tree of 2000 objects without Collection, the focus at its far end.
  FakeAtspiBus bus;
  FakeAtspiBus::Application& app = addEditor(bus, ":1.7", 42, "world");
  app.hasCollection = false;
  for (int i = 0; i < 2000; ++i) {
    const std::string path = "/item" + std::to_string(i);
    app.nodes["/menu"].children.push_back(path);
    app.nodes[path];
  }
  app.nodes["/menu"].children.push_back("/pane");
  app.nodes["/window"].children = {"/menu"};
  bus.callCost = std::chrono::microseconds(100);

  const AtspiReadLimits limits;
  AtspiRead read = readSelectedText(bus, 42, limits);
  EXPECT_EQ(read.error, kAXErrorNoValue);
  // The walk, and the look for the active window before it.
  EXPECT_LE(bus.stateQueries, limits.maxNodes + 1);

  // Each answer slow: the read gives up at its budget.
  FakeAtspiBus slow;
  FakeAtspiBus::Application& slowApp = addEditor(slow, ":1.7", 42, "world");
  slowApp.hasCollection = false;
  slowApp.nodes["/root"].children = {"/window", "/pane"};
  for (int i = 0; i < 100; ++i) {
    const std::string path = "/item" + std::to_string(i);
    slowApp.nodes["/window"].children.insert(
        slowApp.nodes["/window"].children.begin(), path);
    slowApp.nodes[path].children = {"/menu"};
  }
  slowApp.nodes["/pane"].children.clear();
  slowApp.nodes["/pane"].focused = false;
  slowApp.nodes["/view"].focused = false;
  slow.callCost = milliseconds(20);
  const nanoseconds start = slow.now();
  read = readSelectedText(slow, 42, limits);
  EXPECT_EQ(read.error, kAXErrorCannotComplete);
  EXPECT_LE(slow.now() - start, limits.budget);
}

}  // namespace
}  // namespace tovrin
