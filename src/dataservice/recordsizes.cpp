#include "dataservice/recordsizes.h"

namespace qarvo {

QString fitRecordText(const QString &text, qsizetype size)
{
    const qsizetype room = size > 0 ? size - 1 : 0;
    if (text.size() <= room)
        return text;
    qsizetype cut = room;
    if (cut > 0 && text.at(cut - 1).isHighSurrogate())
        --cut;
    return text.left(cut);
}

} // namespace qarvo
