#pragma once

// The image scaffold: the 16 x 16 image strip reached by index, and the larger bitmaps reached by
// resource number, all drawn from our own SVGs.

#include <QIcon>
#include <QPixmap>

namespace qarvo::images {

// Indexes into the small image strip.
enum Index : int {
    FolderClosed = 0,
    FolderOpen = 1,
    WmiRule = 2,
    NaqcRule = 3,
    LeafSelected = 9,
    Leaf = 10,
    ConjunctionEq = 11,
    ConjunctionOr = 12,
    ConjunctionAnd = 13,
    StripCount = 14,
};

// Bitmap resources.
enum Bitmap : int {
    ImageStrip = 201,
    WmiWizardHeader = 204,
    NaqcWizardHeader = 425,
    WmiEmblem = 426,
    NaqcEmblem = 427,
};

// Every view that shows a strip image keeps the index under this role, so that what a row shows
// can be read back.
inline constexpr int ImageIndexRole = Qt::UserRole + 64;

// The strip image at `index`; a null icon outside the strip.
QIcon icon(int index);
// A bitmap resource at its natural size (or `size` when given); null for an unknown number.
QPixmap bitmap(int resourceId, QSize size = {});

} // namespace qarvo::images
