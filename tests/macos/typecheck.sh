#!/usr/bin/env bash
# Type-checks tovrin's macOS backend on a machine without Xcode: clang's
# Objective-C++ front end (ARC, blocks, warnings as errors) runs over every
# src/platform/mac/*.mm against the stand-in SDK headers of
# tests/macos/sdk, and over every project header those files include, in
# Objective-C++ mode. The backend's plain C++ part (utf16.cc) is built
# and its unit test run. One line per file checked, then a summary line;
# the exit status is non-zero when any check failed.
#
#   bash tests/macos/typecheck.sh              check the backend
#   bash tests/macos/typecheck.sh --self-test  prove the check catches
#                                              mistakes: copies of backend
#                                              files with one deliberate
#                                              error each must fail it
#
# CLANGXX names the clang++ to use (default: clang++).
set -euo pipefail
cd "$(dirname "$0")/../.."

readonly CLANG="${CLANGXX:-clang++}"
# Every compiler run and the unit test get a deadline.
readonly STEP_TIMEOUT=120

# The flags of a Mac build (CMake adds -Wall -Wextra -Wpedantic), in
# Objective-C++ with ARC, checked against the stand-in SDK.
readonly OBJCXX_FLAGS=(
  -x objective-c++ -std=c++20 -fsyntax-only
  -fobjc-arc -fobjc-runtime=macosx-13.0 -fblocks
  -Wall -Wextra -Wpedantic -Werror
  -I src -I tests/macos/sdk
)

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

if ! command -v "$CLANG" >/dev/null 2>&1; then
  echo "typecheck: $CLANG not found (install clang)" >&2
  exit 2
fi

# check_objcxx FILE [CLANG ARGS...]: type-checks FILE as Objective-C++; the
# diagnostics go to $work/diagnostics.
check_objcxx() {
  local file="$1"
  shift
  timeout "$STEP_TIMEOUT" "$CLANG" "${OBJCXX_FLAGS[@]}" "$@" "$file" \
    >"$work/diagnostics" 2>&1
}

# The project headers that the backend's .mm files include.
backend_headers() {
  sed -n 's/^#include "\(\(platform\|text\)\/[^"]*\.h\)"$/\1/p' src/platform/mac/*.mm |
    sort -u
}

run_checks() {
  local checked=0 failed=0 file header
  report() {  # report OK|FAIL LABEL
    checked=$((checked + 1))
    if [ "$1" = OK ]; then
      echo "ok    $2"
    else
      failed=$((failed + 1))
      echo "FAIL  $2"
      sed 's/^/      /' "$work/diagnostics"
    fi
  }

  for file in src/platform/mac/*.mm; do
    if check_objcxx "$file"; then report OK "$file"; else report FAIL "$file"; fi
  done

  # Each header alone (it includes what it needs), and after AppKit and
  # Foundation (no name of it clashes with their macros: nil, YES, NO, ...).
  for header in $(backend_headers); do
    printf '#include "%s"\n' "$header" >"$work/alone.mm"
    printf '#import <AppKit/AppKit.h>\n#include "%s"\n' "$header" \
      >"$work/after_appkit.mm"
    if check_objcxx "$work/alone.mm" && check_objcxx "$work/after_appkit.mm"
    then
      report OK "src/$header (Objective-C++)"
    else
      report FAIL "src/$header (Objective-C++)"
    fi
  done

  # The plain C++ of the backend: built with the flags of every other
  # source, and its unit test run.
  local cflags libs
  cflags="$(pkg-config --cflags libutf8proc 2>/dev/null || true)"
  libs="$(pkg-config --libs libutf8proc 2>/dev/null || echo -lutf8proc)"
  # shellcheck disable=SC2086
  if timeout "$STEP_TIMEOUT" "$CLANG" -std=c++20 -Wall -Wextra -Wpedantic \
      -Werror -I src $cflags src/text/utf16_test.cc \
      src/text/utf16.cc src/text/text.cc $libs -lgtest_main \
      -lgtest -pthread -o "$work/utf16_test" >"$work/diagnostics" 2>&1 &&
    timeout "$STEP_TIMEOUT" "$work/utf16_test" >>"$work/diagnostics" 2>&1
  then
    report OK "src/text/utf16.cc (built, unit test passed)"
  else
    report FAIL "src/text/utf16.cc (built, unit test passed)"
  fi

  echo "typecheck: $checked checked, $((checked - failed)) ok, $failed failed"
  [ "$failed" -eq 0 ]
}

# The deliberate mistakes: file, text to replace, its replacement, the
# diagnostic that must follow, and what the mistake is.
readonly MISTAKES=(
  "pasteboard.mm" "[pasteboard_ stringForType:typeFor(type)]"
  "[pasteboard_ stringForTyp:typeFor(type)]"
  "no visible @interface for 'NSPasteboard' declares the selector 'stringForTyp:'"
  "a misspelt selector"

  "pasteboard.mm" "[pasteboard_ dataForType:typeFor(type)]"
  "[pasteboard_ dataForType:type]"
  "cannot initialize a parameter of type 'NSPasteboardType"
  "the seam's enum where an NSPasteboardType is wanted"

  "pasteboard.mm" "setString:string forType:"
  "setString:text forType:"
  "no viable conversion from 'std::string_view'"
  "a std::string_view where an NSString is wanted"

  "log.mm" 'NSLog(@"%@", text);'
  'NSLog(text);'
  "format string is not a string literal"
  "the log line handed to NSLog as its format"

  "platform.mm" "return utf8FromCFString((__bridge CFStringRef)text);"
  "return utf8FromCFString((CFStringRef)text);"
  "requires a bridged cast"
  "an NSString cast to CFStringRef without __bridge"

  "platform.mm" "name.get(), &value);"
  "name.get(), value);"
  "no matching function for call to 'AXUIElementCopyAttributeValue'"
  "the value instead of its address for a Copy call's result"

  "platform.mm" "CGEventPost(static_cast<CGEventTapLocation>(tap),"
  "CGEventPost(tap,"
  "no matching function for call to 'CGEventPost'"
  "an int where a CGEventTapLocation is wanted"

  "platform.mm" "macSource == nullptr ? nullptr : macSource->get(),"
  "macSource,"
  "no matching function for call to 'CGEventCreateKeyboardEvent'"
  "the C++ wrapper where its CGEventSourceRef is wanted"

  "platform.mm" "flags = NSEvent.modifierFlags;"
  "flags = NSEvent.modifierFlag;"
  "property 'modifierFlag' not found"
  "a misspelt class property"

  "platform.mm" "NSWorkspace.sharedWorkspace.frontmostApplication"
  "NSWorkspace.frontmostApplication"
  "property 'frontmostApplication' not found on object of type 'NSWorkspace'"
  "an instance property asked of the class"

  "platform.mm" "documentAttributes:@{"
  "documentAttribute:@{"
  "no visible @interface for 'NSAttributedString' declares the selector"
  "a misspelt selector part"

  "worker.mm" "dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0)"
  "dispatch_get_global_queue(QOS_CLASS_USER_INITIATED)"
  "no matching function for call to 'dispatch_get_global_queue'"
  "a missing argument"
)

run_self_test() {
  # The mistakes must be the only reason for a failure.
  if ! run_checks >"$work/baseline" 2>&1; then
    cat "$work/baseline"
    echo "self-test: the unmodified backend does not pass the check"
    return 1
  fi
  local caught=0 missed=0 i file from to expected what copy
  mkdir -p "$work/src/platform/mac"
  for ((i = 0; i < ${#MISTAKES[@]}; i += 5)); do
    file="${MISTAKES[i]}" from="${MISTAKES[i + 1]}" to="${MISTAKES[i + 2]}"
    expected="${MISTAKES[i + 3]}" what="${MISTAKES[i + 4]}"
    copy="$work/src/platform/mac/$file"
    cp "src/platform/mac/$file" "$copy"
    FROM="$from" TO="$to" perl -0pi -e 's/\Q$ENV{FROM}\E/$ENV{TO}/' "$copy"
    if cmp -s "src/platform/mac/$file" "$copy"; then
      missed=$((missed + 1))
      echo "STALE   $file: $what (the text to change is no longer there)"
    elif check_objcxx "$copy"; then
      missed=$((missed + 1))
      echo "MISSED  $file: $what"
    elif ! grep -qF -- "$expected" "$work/diagnostics"; then
      missed=$((missed + 1))
      echo "MISSED  $file: $what (failed for another reason:)"
      sed 's/^/        /' "$work/diagnostics"
    else
      caught=$((caught + 1))
      echo "caught  $file: $what"
    fi
    rm -f "$copy"
  done
  echo "self-test: $caught mistakes caught, $missed missed"
  [ "$missed" -eq 0 ]
}

case "${1:-}" in
  "") run_checks ;;
  --self-test) run_self_test ;;
  *)
    echo "usage: $0 [--self-test]" >&2
    exit 2
    ;;
esac
