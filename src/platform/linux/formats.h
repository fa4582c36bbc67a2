#ifndef TOVRIN_PLATFORM_LINUX_FORMATS_H_
#define TOVRIN_PLATFORM_LINUX_FORMATS_H_

// Clipboard data as both Linux backends receive it, by MIME type: what an X11
// selection owner or a Wayland data offer sends, turned into what the
// pasteboard hands out, and the text this process serves under X11's STRING.
// Pure functions of bytes.

#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"

namespace tovrin {

/// HTML bytes as UTF-8 text: UTF-16 LE or BE when they start with a
/// byte-order mark, else UTF-8 without its BOM; one trailing NUL dropped.
std::string decodeHtml(std::string_view bytes);
/// `text` with every CR LF made LF.
std::string crlfToLf(std::string_view text);
/// Drops one NUL at the end of `text`, if there is one: some owners count
/// the C string's terminator into the value.
void dropOneTrailingNul(std::string& text);
/// The URIs of a text/uri-list, in order: lines ended by CRLF or LF, comment
/// lines (#) and empty lines skipped, trailing NULs ignored.
std::vector<std::string> uriListEntries(std::string_view bytes);
/// The path of `uri` when it names a file on this machine: a file: URL
/// without a host (or with localhost) whose decoded path is absolute and
/// holds no NUL. Nothing for anything else: a remote share, a relative or
/// truncated path, another scheme, text that is no URL.
std::optional<std::string> localFilePath(std::string_view uri);
/// The local files of a text/uri-list (see localFilePath) as URL objects
/// with decoded paths; everything else is left out.
std::vector<PasteboardURLObject> fileURLObjectsFromUriList(
    std::string_view bytes);
/// The items of x-special/gnome-copied-files ("copy" or "cut", then one URI
/// per line): one per URI of a local file (see localFilePath); none when the
/// first line is neither.
std::vector<PasteboardItem> itemsFromGnomeCopiedFiles(std::string_view bytes);
/// UTF-8 `text` as Latin-1 when every character has a Latin-1 code, else
/// unchanged (what this process answers STRING requests with).
std::string latin1IfRepresentable(std::string_view text);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_LINUX_FORMATS_H_
