// SPDX-License-Identifier: Apache-2.0
#include "terminal.h"

#include <limits>

#include <sys/ioctl.h>
#include <unistd.h>

Terminal Terminal::ofOutput()
{
    Terminal result;
    result.isOne = isatty(STDOUT_FILENO) != 0;
    winsize size = {};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    if (size.ws_col > 0)
        result.columns = size.ws_col;
    else if (const int columns = qEnvironmentVariableIntValue("COLUMNS"); columns > 0)
        result.columns = columns;
    if (size.ws_row > 0)
        result.rows = size.ws_row;
    const QByteArray kind = qgetenv("TERM");
    result.hasColours = result.isOne && qEnvironmentVariableIsEmpty("NO_COLOR") && !kind.isEmpty() && kind != "dumb";
    return result;
}

Terminal Terminal::endless() const
{
    Terminal result = *this;
    result.columns = std::numeric_limits<int>::max();
    return result;
}

QString Terminal::paint(const QString &text, Colour colour) const
{
    static const char *const codes[] = {"", "1", "32", "33", "31"};
    if (!hasColours || colour == Plain || text.isEmpty())
        return text;
    return QStringLiteral("\x1b[%1m%2\x1b[0m").arg(QLatin1String(codes[colour]), text);
}
