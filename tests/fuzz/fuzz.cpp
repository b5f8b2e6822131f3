// SPDX-License-Identifier: Apache-2.0
#include "fuzz.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

void promise(bool isKept, const char *what, const QString &detail)
{
    if (isKept)
        return;
    std::fprintf(stderr, "Broken: %s: %s\n", what, qUtf8Printable(detail));
    std::abort();
}

extern "C" __attribute__((visibility("default"))) int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication application(*argc, *argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    return 0;
}

extern "C" __attribute__((visibility("default"))) int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz(QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    return 0;
}
