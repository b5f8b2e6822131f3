// SPDX-License-Identifier: Apache-2.0
// A plugin that is called on the bus, and then calls the interface, whichever plugin serves it.
#include "forecast.h"

#include <zendpoint.h>

class Traveller : public ZEndpoint
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(Forecast *forecast MEMBER m_forecast)

public:
    Traveller() : ZEndpoint(QUrl("//traveller")) {}

protected:
    bool called(const QUrl &, QJsonObject *, QJsonObject *out) override
    {
        if (out)
            out->insert("packs for", m_forecast->tomorrow());
        return true;
    }

private:
    Forecast *m_forecast = nullptr;
};

#include "traveller.moc"
