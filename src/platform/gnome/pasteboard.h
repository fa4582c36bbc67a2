#ifndef TOVRIN_PLATFORM_GNOME_PASTEBOARD_H_
#define TOVRIN_PLATFORM_GNOME_PASTEBOARD_H_

// The general pasteboard on GNOME's compositor, through a remote-desktop
// session that is never started (the clipboard needs no Start, and GNOME
// Shell shows its indicator only for started sessions).
//
// The session follows the clipboard's owner (SelectionOwnerChanged) and
// reads one MIME type at a time (SelectionRead); the compositor serves one
// read per session at once, so reads take turns, each bounded as on the
// other Linux pasteboards. clearContents() makes the session the owner of
// a clipboard that gives nothing; setString() hands the text to a detached
// serving process with a session of its own.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/write_back.h"
#include "platform/platform.h"

namespace tovrin {

class MutterRemoteDesktop;
struct MutterPasteboardState;

class MutterPasteboard : public Pasteboard {
 public:
  ~MutterPasteboard() override;

  std::optional<std::vector<std::string>> types() override;
  std::optional<std::string> stringForType(PasteboardType type) override;
  std::optional<std::string> dataForType(PasteboardType type) override;
  std::optional<PropertyList> propertyListForType(std::string_view) override {
    return std::nullopt;
  }
  std::optional<std::vector<PasteboardURLObject>> readFileURLObjects() override;
  std::optional<std::vector<PasteboardItem>> pasteboardItems() override;

  void guardString(std::string_view text) override { writeBack_.guard(text); }
  void clearContents() override;
  bool setString(std::string_view text, PasteboardType type) override;

  WriteBack& writeBack() { return writeBack_; }

 private:
  friend std::unique_ptr<MutterPasteboard> createMutterPasteboard(
      std::unique_ptr<MutterRemoteDesktop> session);
  explicit MutterPasteboard(std::shared_ptr<MutterPasteboardState> state);

  /// The first of the current owner's types that `choose` picks, read;
  /// nothing when there is none, or it did not answer in time.
  std::optional<std::pair<std::string, std::string>> read(
      const std::function<
          std::vector<std::string>(const std::vector<std::string>&)>& choose);

  std::shared_ptr<MutterPasteboardState> state_;
  WriteBack writeBack_;
};

/// The clipboard of the compositor, followed through `session`, which is
/// never started; null when the compositor does not answer.
std::unique_ptr<MutterPasteboard> createMutterPasteboard(
    std::unique_ptr<MutterRemoteDesktop> session);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_GNOME_PASTEBOARD_H_
