#ifndef TOVRIN_PLATFORM_LINUX_LINUX_PLATFORM_H_
#define TOVRIN_PLATFORM_LINUX_LINUX_PLATFORM_H_

// What every Linux backend does alike: the conversions, which need no
// display (tovrin's own RTF reader, uriparser for URLs), and the copy-run
// lock, shared with the pasteboard's serving process.

#include "platform/linux/write_back.h"
#include "platform/system.h"
#include "rtf/rtf_to_html.h"
#include "text/url_uriparser.h"

namespace tovrin {

class LinuxPlatform : public SystemPlatform {
 public:
  std::optional<std::string> convertRtfToHtml(std::string_view rtf) override {
    return tovrin::convertRtfToHtml(rtf);
  }
  std::optional<ParsedURL> parseURL(std::string_view text) override {
    return parseURLWithUriparser(text);
  }

  /// The lock, taken once the pasteboard is made: its write-back, when it
  /// has one, watches over the run and holds the lock as long as it must.
  CopyRunLockHandle lockCopyRun(std::chrono::milliseconds timeout) final {
    std::unique_ptr<FileLock> lock = lockUserFile(copyLockName(), timeout);
    if (!lock) return nullptr;
    generalPasteboard();
    prepareCopyRun();
    return std::make_unique<SharedCopyRunLock>(std::move(lock),
                                               copyRunWriteBack());
  }

 protected:
  /// The write-back of the backend's pasteboard; null when it has none.
  virtual WriteBack* copyRunWriteBack() = 0;
  /// Called with the lock taken: what the run will need later (the
  /// keystroke) is made ready while it saves the clipboard and pauses.
  virtual void prepareCopyRun() {}
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_LINUX_LINUX_PLATFORM_H_
