#include "platform/x11/pasteboard.h"

#include <X11/Xlib.h>

#include <iterator>
#include <mutex>
#include <utility>

#include "platform/linux/formats.h"
#include "platform/linux/write_back.h"
#include "platform/x11/clipboard_server.h"
#include "platform/x11/pasteboard_state.h"
#include "platform/x11/selection.h"
#include "platform/x11/selection_server.h"
#include "text/text.h"

namespace tovrin {
namespace {

using Result = SelectionConversion::Result;

constexpr const char kClipboard[] = "CLIPBOARD";
constexpr const char kTargets[] = "TARGETS";
constexpr const char kUtf8String[] = "UTF8_STRING";
constexpr const char kPlainUtf8[] = "text/plain;charset=utf-8";
constexpr const char kHtml[] = "text/html";
constexpr const char kRtf[] = "text/rtf";
constexpr const char kApplicationRtf[] = "application/rtf";
constexpr const char kUriList[] = "text/uri-list";
constexpr const char kGnomeCopiedFiles[] = "x-special/gnome-copied-files";

// Interned when a connection of the pool or of the empty ownership opens,
// in one round trip.
constexpr const char* kAtomNames[] = {kClipboard,
                                      kTargets,
                                      "TIMESTAMP",
                                      "MULTIPLE",
                                      "INCR",
                                      "ATOM_PAIR",
                                      kUtf8String,
                                      kPlainUtf8,
                                      kHtml,
                                      kRtf,
                                      kApplicationRtf,
                                      kUriList,
                                      kGnomeCopiedFiles,
                                      "TOVRIN_SELECTION",
                                      "TOVRIN_TIMESTAMP"};

std::vector<const char*> atomNamesToIntern() {
  return std::vector<const char*>(std::begin(kAtomNames), std::end(kAtomNames));
}

// Some owners (xclip) answer every target with their one value: a value is
// taken only under the type that was asked for.
bool sameType(const char* target, const std::string& type) {
  return type == target;
}

bool utf8TextType(const char* target, const std::string& type) {
  return type == target || type == kUtf8String || type == kPlainUtf8;
}

}  // namespace

X11Pasteboard::X11Pasteboard(std::string displayName)
    : state_(std::make_shared<X11PasteboardState>(std::move(displayName),
                                                  atomNamesToIntern())),
      writeBack_([name = state_->displayName](int lockFd) {
        return startX11ClipboardServer(name, lockFd);
      }) {}

X11Pasteboard::~X11Pasteboard() {
  std::lock_guard<std::mutex> lock(state_->ownerMutex);
  state_->closeOwner();
}

std::optional<std::vector<std::string>> X11Pasteboard::types() {
  X11ClipboardReader reader(state_);
  SelectionConversion conversion = reader.convert(kTargets);
  if (conversion.result != Result::kConverted || conversion.format != 32) {
    return std::nullopt;
  }
  std::vector<Atom> atoms;
  for (uint32_t value : conversion.values32()) atoms.push_back(value);
  std::vector<std::string> names;
  for (auto& name : atomNames(reader.display(), atoms)) {
    if (name) names.push_back(std::move(*name));
  }
  return names;
}

std::optional<std::string> X11Pasteboard::stringForType(PasteboardType type) {
  X11ClipboardReader reader(state_);
  switch (type) {
    case PasteboardType::kString: {
      SelectionConversion conversion = reader.convert(kUtf8String);
      std::string text;
      if (conversion.result == Result::kConverted && conversion.format == 8 &&
          utf8TextType(kUtf8String, conversion.typeName)) {
        text = std::move(conversion.data);
      } else {
        // GTK puts CRLF line ends into this target but not into UTF8_STRING.
        auto plain = reader.firstText({kPlainUtf8}, utf8TextType);
        if (!plain) return std::nullopt;
        text = crlfToLf(*plain);
      }
      dropOneTrailingNul(text);
      return toValidUtf8(text);
    }
    case PasteboardType::kHTML: {
      auto html = reader.firstText({kHtml}, sameType);
      if (!html) return std::nullopt;
      return decodeHtml(*html);
    }
    case PasteboardType::kRTF:
      return std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::string> X11Pasteboard::dataForType(PasteboardType type) {
  switch (type) {
    case PasteboardType::kRTF: {
      X11ClipboardReader reader(state_);
      return reader.firstText({kRtf, kApplicationRtf}, sameType);
    }
    case PasteboardType::kString:
    case PasteboardType::kHTML:
      return stringForType(type);
  }
  return std::nullopt;
}

std::optional<PropertyList> X11Pasteboard::propertyListForType(
    std::string_view) {
  return std::nullopt;
}

std::optional<std::vector<PasteboardURLObject>>
X11Pasteboard::readFileURLObjects() {
  X11ClipboardReader reader(state_);
  auto uriList = reader.firstText({kUriList}, sameType);
  if (!uriList) return std::nullopt;
  return fileURLObjectsFromUriList(*uriList);
}

std::optional<std::vector<PasteboardItem>> X11Pasteboard::pasteboardItems() {
  X11ClipboardReader reader(state_);
  auto copied = reader.firstText({kGnomeCopiedFiles}, sameType);
  if (!copied) return std::nullopt;
  return itemsFromGnomeCopiedFiles(*copied);
}

void X11Pasteboard::guardString(std::string_view text) {
  writeBack_.guard(text);
}

void X11Pasteboard::clearContents() {
  std::shared_ptr<X11PasteboardState> state = state_;
  // The text is put back after every capture: the process that will serve
  // it starts now, while the application copies, and from here on watches
  // over the run.
  writeBack_.clearing();
  {
    std::lock_guard<std::mutex> lock(state->ownerMutex);
    if (state->ownerConnection && state->ownerConnection->broken()) {
      state->closeOwner();
    }
    if (!state->ownerConnection) {
      state->ownerConnection = state->open();
      if (!state->ownerConnection) return;
      state->ownerWindow = state->ownerConnection->window();
    }
    state->drainOwnerEvents();
    state->ownerServer.reset();
    Display* display = state->ownerConnection->display();
    Window window = state->ownerConnection->window();
    Atom clipboard = internAtom(display, kClipboard);
    ConversionDeadline deadline;
    std::optional<Time> acquired =
        acquireSelection(display, window, clipboard, deadline);
    if (acquired) {
      state->ownerServer = std::make_unique<SelectionServer>(
          display, window, clipboard, *acquired, std::vector<OfferedTarget>{});
    }
  }
}

bool X11Pasteboard::setString(std::string_view text, PasteboardType type) {
  if (type != PasteboardType::kString) return false;
  const bool served = writeBack_.serve(text);
  // Takes in the SelectionClear of the empty ownership, if it had it.
  state_->serveOwnerRequests();
  return served;
}

std::unique_ptr<X11Pasteboard> createX11Pasteboard() {
  return createX11Pasteboard(std::string());
}

std::unique_ptr<X11Pasteboard> createX11Pasteboard(
    const std::string& displayName) {
  auto connection =
      SelectionConnection::open(displayName, atomNamesToIntern());
  if (!connection) return nullptr;
  // The name of the display that opened, so that the serving child opens
  // the same one even if the environment changes.
  std::string name = DisplayString(connection->display());
  auto pasteboard = std::make_unique<X11Pasteboard>(name);
  pasteboard->state_->giveBack(std::move(connection));
  return pasteboard;
}

}  // namespace tovrin