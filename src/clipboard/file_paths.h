#ifndef TOVRIN_CLIPBOARD_FILE_PATHS_H_
#define TOVRIN_CLIPBOARD_FILE_PATHS_H_

#include <string>
#include <vector>

namespace tovrin {

class Pasteboard;
class Platform;

/// The paths of the files that a copy put on `pasteboard`, found by three
/// strategies (URL objects, the items' file-URL texts, the filenames
/// property list) and cleaned by dedupePaths. Empty when there are none.
std::vector<std::string> getFilePathsFromClipboard(Platform& platform,
                                                   Pasteboard& pasteboard);

/// `paths` trimmed of surrounding white space and line breaks, without empty
/// entries and without repeats (texts that are canonically equivalent count
/// as the same; letter case counts), in the order of first occurrence. Each
/// kept path keeps its first occurrence's form. A name that is not UTF-8
/// (file names are bytes) is repaired: each ill-formed part becomes U+FFFD,
/// so the path still shows which file it was.
std::vector<std::string> dedupePaths(const std::vector<std::string>& paths);

}  // namespace tovrin

#endif  // TOVRIN_CLIPBOARD_FILE_PATHS_H_
