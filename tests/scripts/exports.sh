#!/usr/bin/env bash
# Only the classes that are promised, and their type name functions, can be linked to; and what the host asks.
# exports.sh LIBRARY
set -euo pipefail

classes=(
    ZCodecAlias ZConfigDelegate ZContextDelegate ZDailySchedule ZDbusActivity ZDbusAsyncDelegate ZDbusDelegate
    ZDbusLayerDelegate ZDbusOutcomeDelegate ZDbusReachDelegate ZDefaultConfig ZDefaultContext ZDefaultDbus
    ZDefaultDbusAsync ZDefaultDbusOutcome ZDefaultEmitter ZDefaultJobPoolSet ZDefaultLoader ZDefaultLogger
    ZDefaultScheduler ZDefaultTempFile ZDefaultThreadPoolSet ZDelegate ZEmitterDelegate ZEndpoint ZFunctionActivity
    ZFunctionJob ZHost ZJob ZJobPool ZJobPoolSetDelegate ZLeaseDelegate ZLibrary ZLibrarySet ZLoaderDelegate
    ZLoggerDelegate ZNamedLogger ZObject ZOrderlyEmitter ZOwned ZPeriodicSchedule ZReference ZScheduledActivity
    ZSchedulerDelegate ZSchedulerThread ZServices ZSettings ZTempFileDelegate ZText ZThreadPool
    ZThreadPoolSetDelegate
)
functions=(
    zDbusLayers zDefaultConfigTypeName zDefaultContextTypeName zDefaultDbusAsyncTypeName zDefaultDbusOutcomeTypeName
    zDefaultDbusTypeName zDefaultEmitterTypeName zDefaultJobPoolSetTypeName zDefaultLoaderTypeName
    zDefaultLoggerTypeName zDefaultSchedulerTypeName zDefaultTempFileTypeName zDefaultThreadPoolSetTypeName
    zLoadingHere zTellLoads
)

exported() {
    # Not ours: the sanitizers' marks, and what a build without optimisation leaves of inline functions of Qt's and the
    # standard library's.
    nm -D --defined-only --demangle "$1" | cut -d' ' -f3- | grep -v -e '^__' -e '^_init$' -e '^_fini$' |
        sed -E 's/^(vtable for|typeinfo for|typeinfo name for|VTT for|(non-)?virtual thunk to) //; s/^guard variable for //' |
        sed -E 's/^(zDefault[A-Za-z]+|zDbusLayers|zLoadingHere|zTellLoads)\(.*\)$/\1/; s/^([A-Za-z_]+)::.*/\1/' | grep -v -e '^Q' -e '^std$' -e '^void ' | sort -u
}

diff <(printf '%s\n' "${classes[@]}" "${functions[@]}" | sort -u) <(exported "$1")
echo "ok"
