#!/usr/bin/env bash
# Lists what the shared library exports and fails on anything but the C interface and the
# facade class, or on a function of the C header that the library doesn't export.
#   exported_symbols.sh LIBRARY HEADER
set -euo pipefail
lib=$1
header=$2
exported=$(nm -D --defined-only "$lib" | awk '{print $3}' | c++filt)
unexpected=$(grep -v -E '^(qk_[a-z_0-9]+|CQKSDK::.*|(typeinfo|typeinfo name|vtable) for CQKSDK)$' \
  <<<"$exported" || true)
if [ -n "$unexpected" ]; then
  echo "exported beyond the interfaces:" >&2
  echo "$unexpected" >&2
  exit 1
fi
missing=0
for fn in $(grep -o -E '^QK_C_API [^(]*\bqk_[a-z_0-9]+\(' "$header" | grep -o -E 'qk_[a-z_0-9]+\($' | tr -d '('); do
  if ! grep -q -x "$fn" <<<"$exported"; then
    echo "not exported: $fn" >&2
    missing=1
  fi
done
count=$(grep -c -E '^qk_' <<<"$exported")
[ "$count" -ge 20 ] || { echo "only $count C functions exported" >&2; exit 1; }
grep -q -x 'CQKSDK::qk_Vsrc_Add(int&, int, int, float, float, float, char const\*)' <<<"$exported" ||
  { echo "the facade isn't exported" >&2; exit 1; }
exit $missing
