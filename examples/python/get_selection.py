#!/usr/bin/env python3
"""Reads the user's selection through tovrin, as a Python host would: with
a timeout, stderr kept for diagnostics, and the answer read by key. Run it
off the UI thread in a GUI program.

    python3 get_selection.py      (TOVRIN names the binary; default: tovrin)
"""
import json
import os
import subprocess
import sys


def get_selection():
    """The answer as a dict, and tovrin's diagnostic lines."""
    try:
        run = subprocess.run(
            [os.environ.get("TOVRIN", "tovrin"), "get-selection"],
            capture_output=True, timeout=10, check=False)
    except (OSError, subprocess.TimeoutExpired) as error:
        return {"success": False, "error": f"tovrin did not answer ({error})"}, ""
    diagnostics = run.stderr.decode("utf-8", "replace")
    try:
        return json.loads(run.stdout), diagnostics
    except ValueError:
        return {"success": False, "error": "tovrin did not answer"}, diagnostics


def main():
    answer, diagnostics = get_selection()
    if not answer.get("success"):
        print(f"tovrin: {answer.get('error')}", file=sys.stderr)
        # The diagnostic lines say which way it went, should a user report it.
        if os.environ.get("TOVRIN_VERBOSE"):
            print(diagnostics, file=sys.stderr)
        return 1
    # The three shapes of a successful answer.
    if "file_paths" in answer:
        print("files: " + ", ".join(answer["file_paths"]))
    else:
        print("text: " + answer["text"])
        if "html" in answer:
            print("html: " + answer["html"])
    print("method: " + answer["method"])
    return 0


if __name__ == "__main__":
    sys.exit(main())
