// SPDX-License-Identifier: Apache-2.0
// An endpoint on the bus: everybody who knows its URL can call it.
#include <zdbussubscriber.h>
#include <zdefaultdbus.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QTextStream>

class Calculator : public ZDbusSubscriber
{
public:
    // Called on the caller's thread, and by several at once. Either object may be null.
    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        if (url.path() != "/add" || !in || !out)
            return false; // not handled
        out->insert("sum", in->value("a").toInt() + in->value("b").toInt());
        return true;
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    ZDefaultDbus dbus; // or whichever is injected as ZDbus
    auto calculator = QSharedPointer<Calculator>::create();
    dbus.bind0(QUrl("//calculator"), calculator); // weakly: it is bound as long as somebody holds it

    QTextStream out(stdout);
    const auto call = [&](const char *url) {
        QJsonObject in{{"a", 20}, {"b", 22}}, answer;
        const bool handled = dbus.invoke0(QUrl(url), &in, &answer);
        out << url << ": " << (handled ? QJsonDocument(answer).toJson(QJsonDocument::Compact) : "not handled")
            << Qt::endl;
    };
    call("//calculator/add");
    call("//CALCULATOR/add"); // in a host upper and lower case are the same, in a path they are not
    call("//calculator/Add");
    call("//nobody/add");
    calculator.clear();
    call("//calculator/add");
}
