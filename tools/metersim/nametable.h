#pragma once

#include <QString>
#include <QStringList>
#include <initializer_list>
#include <optional>
#include <utility>
#include <vector>

// Maps the values of a small enumeration to the words that stand for them on the command line,
// in scenario files and on stdin. Matching ignores case because people type these by hand.
template <typename Enum> class NameTable
{
public:
    using Entry = std::pair<Enum, const char *>;

    NameTable(std::initializer_list<Entry> entries)
        : _entries(entries)
    {
    }

    std::optional<Enum> find(const QString &word) const
    {
        for (const auto &[value, name] : _entries) {
            if (word.compare(QLatin1String(name), Qt::CaseInsensitive) == 0)
                return value;
        }
        return std::nullopt;
    }

    QString name(Enum value) const
    {
        for (const auto &[candidate, name] : _entries) {
            if (candidate == value)
                return QLatin1String(name);
        }
        return {};
    }

    QStringList names() const
    {
        QStringList result;
        for (const auto &entry : _entries)
            result.append(QLatin1String(entry.second));
        return result;
    }

private:
    std::vector<Entry> _entries;
};
