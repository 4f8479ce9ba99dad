#include "dataservice/dataservice.h"

namespace qarvo {

ArgKind kindOf(const Arg &arg)
{
    switch (arg.index()) {
    case 0: return ArgKind::Text;
    case 1: return ArgKind::Short;
    default: return ArgKind::Slot;
    }
}

QString kindName(ArgKind kind)
{
    switch (kind) {
    case ArgKind::Text: return QStringLiteral("text");
    case ArgKind::Short: return QStringLiteral("short");
    case ArgKind::Slot: return QStringLiteral("slot");
    }
    return {};
}

DataServiceError::DataServiceError(qint32 status, QString detail)
    : m_status(status), m_detail(std::move(detail))
{
    m_what = QStringLiteral("data service error 0x%1%2")
                 .arg(quint32(m_status), 8, 16, QLatin1Char('0'))
                 .arg(m_detail.isEmpty() ? QString() : QStringLiteral(": ") + m_detail)
                 .toUtf8();
}

const char *DataServiceError::what() const noexcept
{
    return m_what.constData();
}

RowSet::~RowSet() = default;
Utf8Fields::~Utf8Fields() = default;
DataService::~DataService() = default;

MemoryRowSet::MemoryRowSet(QStringList columns, QList<QVariantList> rows)
    : m_columns(std::move(columns)), m_rows(std::move(rows))
{
}

void MemoryRowSet::setColumns(QStringList columns)
{
    m_columns = std::move(columns);
}

void MemoryRowSet::appendRow(QVariantList values)
{
    m_rows.append(std::move(values));
}

bool MemoryRowSet::atEnd()
{
    if (m_closed)
        throw DataServiceError(status::Fail, QStringLiteral("row set is closed"));
    return m_pos >= m_rows.size();
}

void MemoryRowSet::moveNext()
{
    if (m_closed || m_pos >= m_rows.size())
        throw DataServiceError(status::Fail, QStringLiteral("no current row"));
    ++m_pos;
}

QVariant MemoryRowSet::field(const QString &name)
{
    if (m_closed || m_pos >= m_rows.size())
        throw DataServiceError(status::Fail, QStringLiteral("no current row"));
    const qsizetype column = m_columns.indexOf(name);
    const QVariantList &row = m_rows.at(m_pos);
    if (column < 0 || column >= row.size())
        throw DataServiceError(status::Fail, QStringLiteral("no field named ") + name);
    return row.at(column);
}

void MemoryRowSet::close()
{
    m_closed = true;
}

} // namespace qarvo
