#pragma once

// One fuzz input through the WQL reader. Shared by the libFuzzer target and by the test that
// replays the corpus, so that every ordinary build checks the corpus too.
//
// The input is read as a whole query, and, cut at "\x01" into exactly three pieces, as the SELECT,
// FROM and WHERE parts the editor holds: when each part reads in its own place, the query the
// wizard builds from them must read as well and come apart into the same parts again.

#include "conditions/wqlreader.h"
#include "wmirule/conditionrow.h"

#include <cstddef>
#include <cstdint>

namespace qarvo::fuzz {

inline bool runWqlInput(const std::uint8_t *data, std::size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    const wql::ReadResult whole = wql::readQuery(text);
    if (!whole.ok() && (whole.error.pos < 0 || whole.error.pos > text.size() || whole.error.message.isEmpty()))
        return false;
    (void)wql::isDateTimeText(text);

    const QStringList parts = text.split(QChar(1));
    if (parts.size() != 3)
        return true;
    auto reads = [](const QString &query) { return wql::readQuery(query).ok(); };
    WqlQueryParts expected{parts[0], parts[1], parts[2]};
    qsizetype blanks = 0;
    while (blanks < expected.where.size() && (expected.where[blanks] == u' ' || expected.where[blanks] == u'\t'))
        ++blanks;
    expected.where.remove(0, blanks);
    if (!reads(QStringLiteral("SELECT ") + expected.select + QStringLiteral(" FROM X"))
        || !reads(QStringLiteral("SELECT * FROM ") + expected.from)
        || (!expected.where.isEmpty() && !reads(QStringLiteral("SELECT * FROM X WHERE ") + expected.where)))
        return true;
    const QString built = buildWqlQuery(parts[0], parts[1], parts[2]);
    return reads(built) && splitWqlQuery(built) == expected;
}

} // namespace qarvo::fuzz
