#ifndef TOVRIN_PLATFORM_WAYLAND_OFFERS_H_
#define TOVRIN_PLATFORM_WAYLAND_OFFERS_H_

// What a Wayland clipboard offer is asked for, and what its bytes become.
// An offer lists MIME types; each read asks for one of them through a pipe.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"

namespace tovrin {

inline constexpr char kMimePlainUtf8[] = "text/plain;charset=utf-8";
inline constexpr char kMimeUtf8String[] = "UTF8_STRING";
inline constexpr char kMimePlain[] = "text/plain";
inline constexpr char kMimeHtml[] = "text/html";
inline constexpr char kMimeRtf[] = "text/rtf";
inline constexpr char kMimeApplicationRtf[] = "application/rtf";
inline constexpr char kMimeUriList[] = "text/uri-list";
inline constexpr char kMimeGnomeCopiedFiles[] = "x-special/gnome-copied-files";

/// The types that tovrin offers when it serves text, best first, as other
/// Wayland clients offer text (and XWayland asks for it).
std::vector<std::string> servedTextTypes();
/// The bytes served under `mimeType` for the UTF-8 `text`: Latin-1 for
/// STRING where every character has a Latin-1 code, else the text itself.
std::string servedTextFor(std::string_view mimeType, std::string_view text);

/// The types to ask `offered` for the pasteboard's `type`, best first, and
/// only those it lists: kString takes text/plain;charset=utf-8, else
/// UTF8_STRING, else text/plain; kHTML text/html; kRTF text/rtf, else
/// application/rtf.
std::vector<std::string> typesToRead(PasteboardType type,
                                     const std::vector<std::string>& offered);

/// The bytes read under `mimeType` as the pasteboard's text: HTML decoded
/// (UTF-16 with a byte-order mark, else UTF-8), the text/plain types with
/// CRLF made LF; one trailing NUL dropped and invalid UTF-8 repaired.
/// `type` alone when `offered` holds it, else nothing.
std::vector<std::string> onlyIfOffered(const std::vector<std::string>& offered,
                                       const char* type);

std::string textFromOffer(std::string_view mimeType, std::string bytes);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_WAYLAND_OFFERS_H_
