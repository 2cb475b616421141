#!/usr/bin/env bash
# Checks that every C++ file follows .clang-format and that text files follow .editorconfig
# (no trailing blanks, no tabs in code, a final newline). With --fix, reformats instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files --cached --others --exclude-standard '*.cpp' '*.h' '*.cc' '*.hpp' |
    while IFS= read -r f; do [ -f "$f" ] && echo "$f"; done)
if [ "${1:-}" = "--fix" ]; then
    clang-format -i "${files[@]}"
    exit 0
fi
clang-format --dry-run --Werror "${files[@]}"
bad=0
while IFS= read -r f; do
    [ -f "$f" ] || continue
    if grep -nE '[[:blank:]]+$' "$f" >/dev/null; then echo "$f: trailing blanks"; bad=1; fi
    if [ -s "$f" ] && [ -n "$(tail -c1 "$f")" ]; then echo "$f: no final newline"; bad=1; fi
    case "$f" in *.cpp|*.h|*.cmake|CMakeLists.txt|*.sh)
        if grep -nP '\t' "$f" >/dev/null; then echo "$f: tab"; bad=1; fi ;;
    esac
done < <(git ls-files --cached --others --exclude-standard | grep -vE '(^|/)corpus/|\.(png|bin|dat)$')
exit $bad
