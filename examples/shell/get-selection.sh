#!/bin/sh
# The selected text (or the selected files' paths, one per line) on standard
# output; nothing and status 1 when there is none. For scripts and
# window-manager key bindings, e.g. in sway:
#   bindsym $mod+t exec get-selection.sh | my-translator
# TOVRIN names the binary; default: tovrin.
timeout 10 "${TOVRIN:-tovrin}" get-selection 2>/dev/null |
  jq -er 'select(.success) | (.file_paths // empty | join("\n")), .text // empty' ||
  exit 1
