#include "meteroption.h"

#include "meter.h"

std::unique_ptr<Meter> MeterOption::create(const QString &text, QString *error)
{
    const QString idText = text.section(u':', 0, 0);
    const QString modelText = text.section(u':', 1, 1);
    const QString serial = text.section(u':', 2);
    const auto id = Meter::parseId(idText);
    const auto model = MeterModel::fromName(modelText);
    if (!id || !model) {
        *error = QStringLiteral(
            "bad meter %1: want ID:MODEL[:SERIAL] with ID %2..%3 and MODEL one of %4")
                     .arg(text)
                     .arg(Meter::FirstId)
                     .arg(Meter::LastId)
                     .arg(MeterModel::names().join(u' '));
        return nullptr;
    }
    auto meter = std::make_unique<Meter>(*id, *model);
    if (!serial.isEmpty() && !meter->set(QStringLiteral("serial"), serial, error))
        return nullptr;
    return meter;
}
