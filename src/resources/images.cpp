#include "resources/images.h"

#include <QHash>
#include <QPainter>
#include <QSvgRenderer>

namespace qarvo::images {

namespace {

QPixmap render(const QString &path, QSize size)
{
    QSvgRenderer renderer(path);
    if (!renderer.isValid())
        return {};
    if (!size.isValid())
        size = renderer.defaultSize();
    QPixmap pixmap(size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter);
    return pixmap;
}

} // namespace

QIcon icon(int index)
{
    static QHash<int, QIcon> cache;
    if (index < 0 || index >= StripCount)
        return {};
    auto it = cache.constFind(index);
    if (it != cache.constEnd())
        return *it;
    const QString path = QStringLiteral(":/qarvo/icons/img%1.svg").arg(index, 2, 10, QLatin1Char('0'));
    QIcon result;
    result.addPixmap(render(path, QSize(16, 16)));
    result.addPixmap(render(path, QSize(32, 32)));
    cache.insert(index, result);
    return result;
}

QPixmap bitmap(int resourceId, QSize size)
{
    switch (resourceId) {
    case WmiWizardHeader:
    case NaqcWizardHeader:
    case WmiEmblem:
    case NaqcEmblem:
        return render(QStringLiteral(":/qarvo/icons/bmp%1.svg").arg(resourceId), size);
    case ImageStrip: {
        QPixmap strip(16 * StripCount, 16);
        strip.fill(Qt::transparent);
        QPainter painter(&strip);
        for (int i = 0; i < StripCount; ++i)
            painter.drawPixmap(16 * i, 0, icon(i).pixmap(16, 16));
        return strip;
    }
    default:
        return {};
    }
}

} // namespace qarvo::images
