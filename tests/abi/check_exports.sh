#!/usr/bin/env bash
# The shared library exports its public classes and nothing else: every defined dynamic
# symbol must belong to one of the exported classes (members, vtables, typeinfo, meta
# objects) or be a linker-provided marker. Sanitizer builds add their own markers, and
# unoptimised builds may emit the type information of Qt's own classes.
set -euo pipefail
lib="$1"
exported='VantorUtils|VantorBusiUtils|IVantorQueryExecuteItem|IOnceTimerBase|VantorDelayBuffer|VantorStatisticAssist|VantorInitStateMgr|VantorSystemMonitor|WindowsDragHandleHelper|VantorSettings|LmPresenterClassMgr'
symbols=$(nm -D --defined-only -C "$lib" | cut -d' ' -f3-)
stray=$(printf '%s\n' "$symbols" \
  | grep -vE "^(_init|_fini|_edata|_end|__bss_start)$" \
  | grep -vE "^__odr_asan\." \
  | grep -vE "^(typeinfo|typeinfo name) for Q[A-Za-z]*$" \
  | grep -vE "^((vtable|typeinfo|typeinfo name) for |(non-virtual|virtual) thunk to )?(${exported})(::|$| )" \
  | grep -vE "^(vtable|typeinfo|typeinfo name) for (${exported})(::[A-Za-z_]+)?$" \
  | grep -vE "^(operator(<<|>>|==|!=)|qHash)\(.*(${exported})" || true)
if [ -n "$stray" ]; then
  echo "symbols exported that belong to no public class:"
  printf '%s\n' "$stray" | head -50
  exit 1
fi
if printf '%s\n' "$symbols" | grep -qE '(^|[^A-Za-z])[A-Za-z]+_p::'; then
  echo "private singletons are visible:"
  printf '%s\n' "$symbols" | grep -E '[A-Za-z]+_p::' | head
  exit 1
fi
echo "$(printf '%s\n' "$symbols" | grep -c .) exported symbols, all from public classes"
