#include "platform/atspi/atspi_reader.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>

namespace tovrin {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

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
    for (const auto& [path, node] : application.nodes) {
      if (node.focused) return {BusStatus::kOk, {{root.bus, path}}};
    }
    return {BusStatus::kOk, {}};
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
    return {BusStatus::kOk,
            node->text.substr(range.first, range.second - range.first)};
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

TEST(AtspiReaderTest, JoinsSeveralSelectionsAndSkipsEmptyOnes) {
  FakeAtspiBus bus;
  FakeAtspiBus::Node& view = addEditor(bus, ":1.7", 42, "world").nodes["/view"];
  view.selections = {{0, 5}, {3, 3}, {6, 11}};
  const AtspiRead read = readSelectedText(bus, 42);
  EXPECT_EQ(read.error, kAXErrorSuccess);
  EXPECT_EQ(read.text, "hello\nworld");
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
  EXPECT_LE(bus.stateQueries, limits.maxNodes);

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
