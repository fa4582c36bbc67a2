#include "platform/atspi/sd_bus.h"

#include <cstring>

#include "platform/atspi/sd_bus_library.h"

namespace tovrin {
namespace {

constexpr const char* kRegistry = "org.a11y.atspi.Registry";
constexpr const char* kRootPath = "/org/a11y/atspi/accessible/root";
constexpr const char* kAccessible = "org.a11y.atspi.Accessible";
constexpr const char* kText = "org.a11y.atspi.Text";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr const char* kA11yBus = "org.a11y.Bus";
constexpr const char* kA11yBusPath = "/org/a11y/bus";

int noArguments(sd_bus_message*) { return 0; }

/// Reads an (so) reply: one object; false for the null object.
bool readObject(const SdBusLibrary& library, sd_bus_message* message,
                AccessibleRef& object) {
  const char* bus = nullptr;
  const char* path = nullptr;
  if (library.read(message, "(so)", &bus, &path) <= 0) return false;
  if (std::strcmp(path, "/org/a11y/atspi/null") == 0) return false;
  object = {bus, path};
  return true;
}

/// Reads an a(so) reply: a list of objects.
bool readObjects(const SdBusLibrary& library, sd_bus_message* message,
                 std::vector<AccessibleRef>& objects) {
  if (library.enterContainer(message, 'a', "(so)") < 0) return false;
  for (;;) {
    const char* bus = nullptr;
    const char* path = nullptr;
    const int r = library.read(message, "(so)", &bus, &path);
    if (r < 0) return false;
    if (r == 0) break;
    // The null path stands for "no object".
    if (std::strcmp(path, "/org/a11y/atspi/null") == 0) continue;
    objects.push_back({bus, path});
  }
  return library.exitContainer(message) >= 0;
}

/// Reads an au reply: a state set.
bool readStates(const SdBusLibrary& library, sd_bus_message* message,
                std::vector<uint32_t>& words) {
  if (library.enterContainer(message, 'a', "u") < 0) return false;
  for (;;) {
    uint32_t word = 0;
    const int r = library.read(message, "u", &word);
    if (r < 0) return false;
    if (r == 0) break;
    words.push_back(word);
  }
  return library.exitContainer(message) >= 0;
}

/// The reply of call `index` of `batch`, read by `read` into its value.
template <typename T, typename Read>
BusReply<T> replyOf(const SdBusBatch& batch, size_t index, Read read) {
  BusReply<T> result{batch.status(index)};
  if (result.status == BusStatus::kOk && !read(batch.reply(index), result.value)) {
    return {};
  }
  return result;
}

}  // namespace

struct SdAtspiBus::Connection {
  std::unique_ptr<SdBusLibrary> library;
  std::unique_ptr<SdBusConnection> bus;

  template <typename Append>
  BusStatus call(const std::string& destination, const std::string& path,
                 const char* interface, const char* member,
                 std::chrono::nanoseconds deadline, SdBusMessage& reply,
                 Append append) {
    return callMethod(*library, bus->get(), destination, path, interface,
                      member, deadline, reply, append);
  }

  BusReply<std::string> stringProperty(const AccessibleRef& object,
                                       const char* interface,
                                       const char* property,
                                       std::chrono::nanoseconds deadline) {
    SdBusMessage reply(*library);
    const BusStatus status = call(
        object.bus, object.path, kProperties, "Get",
        deadline, reply, [&](sd_bus_message* m) {
          return library->append(m, "ss", interface, property);
        });
    if (status != BusStatus::kOk) return {status};
    const char* value = nullptr;
    if (library->read(reply.get(), "v", "s", &value) < 0) return {};
    return {BusStatus::kOk, value};
  }
};

BusStatus SdAtspiBus::enableToolkitAccessibility(
    std::chrono::nanoseconds deadline) {
  const auto library = SdBusLibrary::load();
  if (!library) return BusStatus::kUnavailable;
  const auto session = openSessionBus(*library, deadline);
  if (!session) return BusStatus::kUnavailable;
  SdBusMessage reply(*library);
  return callMethod(*library, session->get(), kA11yBus, kA11yBusPath,
                    kProperties, "Set", deadline, reply,
                    [&](sd_bus_message* m) {
                      return library->append(m, "ssv", "org.a11y.Status",
                                             "IsEnabled", "b", 1);
                    });
}

std::unique_ptr<SdAtspiBus> SdAtspiBus::connect(
    const std::optional<std::string>& address,
    std::chrono::nanoseconds deadline) {
  auto connection = std::make_unique<Connection>();
  connection->library = SdBusLibrary::load();
  if (!connection->library) return nullptr;
  const SdBusLibrary& library = *connection->library;

  std::string busAddress;
  if (address && !address->empty()) {
    busAddress = *address;
  } else {
    const auto session = openSessionBus(library, deadline);
    if (!session) return nullptr;
    SdBusMessage reply(library);
    if (callMethod(library, session->get(), kA11yBus, kA11yBusPath, kA11yBus,
                   "GetAddress", deadline, reply,
                   noArguments) != BusStatus::kOk) {
      return nullptr;
    }
    const char* found = nullptr;
    if (library.read(reply.get(), "s", &found) < 0 || found == nullptr) {
      return nullptr;
    }
    busAddress = found;
  }

  sd_bus* raw = nullptr;
  if (library.busNew(&raw) < 0) return nullptr;
  connection->bus = std::make_unique<SdBusConnection>(library, raw);
  if (library.setAddress(raw, busAddress.c_str()) < 0 ||
      library.setBusClient(raw, 1) < 0 || library.start(raw) < 0 ||
      connection->bus->waitReady(deadline) != BusStatus::kOk) {
    return nullptr;
  }
  return std::unique_ptr<SdAtspiBus>(new SdAtspiBus(std::move(connection)));
}

SdAtspiBus::SdAtspiBus(std::unique_ptr<Connection> connection)
    : connection_(std::move(connection)) {}

SdAtspiBus::~SdAtspiBus() = default;

std::chrono::nanoseconds SdAtspiBus::now() { return monotonicNow(); }

BusReply<std::vector<AccessibleRef>> SdAtspiBus::applications(
    std::chrono::nanoseconds deadline) {
  return children({kRegistry, kRootPath}, deadline);
}

BusReply<pid_t> SdAtspiBus::processOf(const std::string& busName,
                                      std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusMessage reply(library);
  const BusStatus status = connection_->call(
      "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetConnectionUnixProcessID", deadline, reply,
      [&](sd_bus_message* m) {
        return library.append(m, "s", busName.c_str());
      });
  if (status != BusStatus::kOk) return {status};
  uint32_t pid = 0;
  if (library.read(reply.get(), "u", &pid) < 0) return {};
  return {BusStatus::kOk, static_cast<pid_t>(pid)};
}

std::vector<BusReply<pid_t>> SdAtspiBus::processesOf(
    const std::vector<std::string>& busNames,
    std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusBatch batch(library, connection_->bus->get());
  for (const std::string& name : busNames) {
    batch.add("org.freedesktop.DBus", "/org/freedesktop/DBus",
              "org.freedesktop.DBus", "GetConnectionUnixProcessID", deadline,
              [&](sd_bus_message* m) {
                return library.append(m, "s", name.c_str());
              });
  }
  batch.wait(deadline);
  std::vector<BusReply<pid_t>> processes;
  for (size_t i = 0; i < busNames.size(); ++i) {
    processes.push_back(
        replyOf<pid_t>(batch, i, [&](sd_bus_message* m, pid_t& pid) {
          uint32_t value = 0;
          if (library.read(m, "u", &value) < 0) return false;
          pid = static_cast<pid_t>(value);
          return true;
        }));
  }
  return processes;
}

std::vector<BusReply<std::string>> SdAtspiBus::properties(
    const std::vector<std::pair<AccessibleRef, TextProperty>>& asked,
    std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusBatch batch(library, connection_->bus->get());
  for (const auto& [object, property] : asked) {
    batch.add(object.bus, object.path, kProperties, "Get", deadline,
              [&, property = property](sd_bus_message* m) {
                return property == TextProperty::kName
                           ? library.append(m, "ss", kAccessible, "Name")
                           : library.append(m, "ss",
                                            "org.a11y.atspi.Application",
                                            "ToolkitName");
              });
  }
  batch.wait(deadline);
  std::vector<BusReply<std::string>> values;
  for (size_t i = 0; i < asked.size(); ++i) {
    values.push_back(replyOf<std::string>(
        batch, i, [&](sd_bus_message* m, std::string& value) {
          const char* text = nullptr;
          if (library.read(m, "v", "s", &text) < 0 || text == nullptr) {
            return false;
          }
          value = text;
          return true;
        }));
  }
  return values;
}

BusReply<std::vector<CachedObject>> SdAtspiBus::cachedObjects(
    const std::string& busName, std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusMessage reply(library);
  const BusStatus status =
      connection_->call(busName, "/org/a11y/atspi/cache",
                        "org.a11y.atspi.Cache", "GetItems", deadline, reply,
                        noArguments);
  if (status != BusStatus::kOk) return {status};
  sd_bus_message* m = reply.get();
  // Each item: the object, its application, its parent, its index and
  // child count, its interfaces, name, role and description, its states.
  constexpr const char* kItem = "(so)(so)(so)iiassusau";
  BusReply<std::vector<CachedObject>> result{BusStatus::kOk};
  if (library.enterContainer(m, 'a', "((so)(so)(so)iiassusau)") < 0) return {};
  for (;;) {
    const int r = library.enterContainer(m, 'r', kItem);
    if (r < 0) return {};
    if (r == 0) break;
    CachedObject& item = result.value.emplace_back();
    const char *bus = nullptr, *path = nullptr, *parentBus = nullptr,
               *parentPath = nullptr;
    if (library.read(m, "(so)", &bus, &path) <= 0 ||
        library.skip(m, "(so)") < 0 ||
        library.read(m, "(so)", &parentBus, &parentPath) <= 0 ||
        library.skip(m, "iiassus") < 0 ||
        !readStates(library, m, item.states) ||
        library.exitContainer(m) < 0) {
      return {};
    }
    item.object = {bus, path};
    item.parent = {parentBus, parentPath};
  }
  if (library.exitContainer(m) < 0) return {};
  return result;
}

std::vector<ObjectFacts> SdAtspiBus::survey(
    const std::vector<AccessibleRef>& objects, bool withChildren,
    std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusBatch batch(library, connection_->bus->get());
  for (const AccessibleRef& object : objects) {
    batch.add(object.bus, object.path, kAccessible, "GetState", deadline,
              noArguments);
    if (withChildren) {
      batch.add(object.bus, object.path, kAccessible, "GetChildren", deadline,
                noArguments);
    }
  }
  batch.wait(deadline);
  std::vector<ObjectFacts> facts;
  size_t index = 0;
  for (size_t i = 0; i < objects.size(); ++i) {
    ObjectFacts& fact = facts.emplace_back();
    fact.states = replyOf<std::vector<uint32_t>>(
        batch, index++, [&](sd_bus_message* m, std::vector<uint32_t>& words) {
          return readStates(library, m, words);
        });
    if (withChildren) {
      fact.children = replyOf<std::vector<AccessibleRef>>(
          batch, index++,
          [&](sd_bus_message* m, std::vector<AccessibleRef>& children) {
            return readObjects(library, m, children);
          });
    }
  }
  return facts;
}

BusReply<std::vector<AccessibleRef>> SdAtspiBus::focusedDescendants(
    const AccessibleRef& root, std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusMessage reply(library);
  const BusStatus status = connection_->call(
      root.bus, root.path, "org.a11y.atspi.Collection", "GetMatches", deadline,
      reply, [&](sd_bus_message* m) {
        // Objects in every state of {FOCUSED}, with every attribute, role
        // and interface of the empty sets (match type ALL is 1); sorted in
        // tree order (1); the first four; through all descendants.
        return library.append(
            m, "(aiia{ss}iaiiasib)uib", 2,
            static_cast<int32_t>(1u << kAtspiStateFocused), 0, 1, 0, 1, 0, 1,
            0, 1, 0, 1u, 4, 1);
      });
  if (status != BusStatus::kOk) return {status};
  BusReply<std::vector<AccessibleRef>> result{BusStatus::kOk};
  if (!readObjects(library, reply.get(), result.value)) return {};
  return result;
}

BusReply<std::vector<AccessibleRef>> SdAtspiBus::children(
    const AccessibleRef& object, std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusMessage reply(library);
  const BusStatus status =
      connection_->call(object.bus, object.path, kAccessible, "GetChildren",
                        deadline, reply, noArguments);
  if (status != BusStatus::kOk) return {status};
  BusReply<std::vector<AccessibleRef>> result{BusStatus::kOk};
  if (!readObjects(library, reply.get(), result.value)) return {};
  return result;
}

BusReply<std::vector<uint32_t>> SdAtspiBus::states(
    const AccessibleRef& object, std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusMessage reply(library);
  const BusStatus status =
      connection_->call(object.bus, object.path, kAccessible, "GetState",
                        deadline, reply, noArguments);
  if (status != BusStatus::kOk) return {status};
  BusReply<std::vector<uint32_t>> result{BusStatus::kOk};
  if (!readStates(library, reply.get(), result.value)) return {};
  return result;
}

BusReply<std::vector<TextRange>> SdAtspiBus::selections(
    const AccessibleRef& object, std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  const auto readRange = [&](sd_bus_message* m, TextRange& range) {
    return library.read(m, "ii", &range.first, &range.second) >= 0;
  };
  // A text has one selection, a few at most: the first is asked with the
  // count, a count beyond a few is not worth a round trip each.
  SdBusBatch batch(library, connection_->bus->get());
  batch.add(object.bus, object.path, kText, "GetNSelections", deadline,
            noArguments);
  batch.add(object.bus, object.path, kText, "GetSelection", deadline,
            [&](sd_bus_message* m) { return library.append(m, "i", 0); });
  batch.wait(deadline);
  const auto count =
      replyOf<int32_t>(batch, 0, [&](sd_bus_message* m, int32_t& n) {
        return library.read(m, "i", &n) >= 0;
      });
  if (count.status != BusStatus::kOk) return {count.status};
  BusReply<std::vector<TextRange>> result{BusStatus::kOk};
  if (count.value <= 0) return result;
  const auto first = replyOf<TextRange>(batch, 1, readRange);
  if (first.status != BusStatus::kOk) return {first.status};
  result.value.push_back(first.value);
  SdBusBatch more(library, connection_->bus->get());
  for (int32_t i = 1; i < count.value && i < 16; ++i) {
    more.add(object.bus, object.path, kText, "GetSelection", deadline,
             [&](sd_bus_message* m) { return library.append(m, "i", i); });
  }
  more.wait(deadline);
  for (int32_t i = 1; i < count.value && i < 16; ++i) {
    const auto range = replyOf<TextRange>(more, static_cast<size_t>(i - 1),
                                          readRange);
    if (range.status != BusStatus::kOk) return {range.status};
    result.value.push_back(range.value);
  }
  return result;
}

BusReply<std::string> SdAtspiBus::text(const AccessibleRef& object,
                                       TextRange range,
                                       std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusMessage reply(library);
  const BusStatus status = connection_->call(
      object.bus, object.path, kText, "GetText", deadline, reply,
      [&](sd_bus_message* m) {
        return library.append(m, "ii", range.first, range.second);
      });
  if (status != BusStatus::kOk) return {status};
  const char* value = nullptr;
  if (library.read(reply.get(), "s", &value) < 0 || value == nullptr) return {};
  return {BusStatus::kOk, value};
}

BusReply<std::string> SdAtspiBus::name(const AccessibleRef& object,
                                       std::chrono::nanoseconds deadline) {
  return connection_->stringProperty(object, kAccessible, "Name", deadline);
}

BusReply<int32_t> SdAtspiBus::caretOffset(const AccessibleRef& object,
                                          std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusMessage reply(library);
  const BusStatus status = connection_->call(
      object.bus, object.path, kProperties, "Get", deadline, reply,
      [&](sd_bus_message* m) {
        return library.append(m, "ss", kText, "CaretOffset");
      });
  if (status != BusStatus::kOk) return {status};
  int32_t offset = -1;
  if (library.read(reply.get(), "v", "i", &offset) < 0) return {};
  return {BusStatus::kOk, offset};
}

BusReply<std::string> SdAtspiBus::toolkitName(
    const AccessibleRef& root, std::chrono::nanoseconds deadline) {
  return connection_->stringProperty(root, "org.a11y.atspi.Application",
                                     "ToolkitName", deadline);
}

BusReply<AccessibleRef> SdAtspiBus::embeddedObject(
    const AccessibleRef& object, int32_t offset,
    std::chrono::nanoseconds deadline) {
  const SdBusLibrary& library = *connection_->library;
  SdBusMessage index(library);
  BusStatus status = connection_->call(
      object.bus, object.path, "org.a11y.atspi.Hypertext", "GetLinkIndex",
      deadline, index,
      [&](sd_bus_message* m) { return library.append(m, "i", offset); });
  if (status != BusStatus::kOk) return {status};
  int32_t link = -1;
  if (library.read(index.get(), "i", &link) < 0 || link < 0) return {};
  SdBusMessage linkReply(library);
  status = connection_->call(
      object.bus, object.path, "org.a11y.atspi.Hypertext", "GetLink", deadline,
      linkReply,
      [&](sd_bus_message* m) { return library.append(m, "i", link); });
  if (status != BusStatus::kOk) return {status};
  AccessibleRef hyperlink;
  if (!readObject(library, linkReply.get(), hyperlink)) return {};
  SdBusMessage target(library);
  status = connection_->call(
      hyperlink.bus, hyperlink.path, "org.a11y.atspi.Hyperlink", "GetObject",
      deadline, target,
      [&](sd_bus_message* m) { return library.append(m, "i", 0); });
  if (status != BusStatus::kOk) return {status};
  BusReply<AccessibleRef> result{BusStatus::kOk};
  if (!readObject(library, target.get(), result.value)) return {};
  return result;
}

}  // namespace tovrin
