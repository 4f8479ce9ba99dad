#include "conditions/catalogue.h"

#include "control/settings.h"
#include "resources/strings.h"
#include "resources/ui.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace qarvo::catalogue {

namespace {
// The manager has always read the value into 512 characters with the last one kept for the
// terminator.
constexpr int ProgramPathCapacity = 511;

// Far beyond any real catalogue, and small enough that a scan through it ends in seconds.
constexpr qint64 MaxCatalogueFileBytes = 256 * 1024 * 1024;

// Only regular files of a sane size count: a directory, a pipe, a device or a huge (perhaps
// sparse) file in a catalogue file's place is reported like a missing file instead of being
// read, possibly forever. The size is checked again on the file opened, which is the one read.
bool openCatalogueFile(QFile &file)
{
    const QFileInfo info(file.fileName());
    return info.isFile() && info.size() <= MaxCatalogueFileBytes && file.open(QIODevice::ReadOnly)
           && file.size() <= MaxCatalogueFileBytes;
}
} // namespace

QString catalogueFilePath(const QString &programPath, const QString &relativeName)
{
    return programPath + QDir::separator() + QDir::toNativeSeparators(relativeName);
}

QString shippedCatalogueDirectory()
{
    if (!QCoreApplication::instance())
        return {};
    return QDir::cleanPath(QCoreApplication::applicationDirPath()
                           + QStringLiteral("/../share/qarvo/catalogue"));
}

std::optional<QString> programDirectory()
{
    if (managerKeyExists()) {
        const auto settings = managerSettings();
        const QVariant value = settings->value(QStringLiteral("ProgramPath"));
        if (value.isValid())
            return QDir::toNativeSeparators(value.toString().left(ProgramPathCapacity));
    }
    // Without the manager's own setting the console still works with the catalogue installed
    // beside it.
    const QString shipped = shippedCatalogueDirectory();
    if (!shipped.isEmpty() && QFileInfo::exists(shipped + QStringLiteral("/class.dat")))
        return QDir::toNativeSeparators(shipped);
    return std::nullopt;
}

bool LoadClassList(const QString &programPath, ClassTree &tree, QWidget *messageParent)
{
    tree.clear();
    QFile file(catalogueFilePath(programPath, QStringLiteral("class.dat")));
    if (!openCatalogueFile(file)) {
        ui::error(messageParent, strings::CannotOpenClassList);
        return false;
    }
    readClassList(file, tree);
    return true;
}

std::optional<ClassFields> LoadClassFields(const QString &programPath, const QString &className,
                                           QWidget *messageParent)
{
    QFile file(catalogueFilePath(programPath, FieldFileFor(className)));
    if (!openCatalogueFile(file)) {
        ui::error(messageParent, strings::CannotOpenFieldList);
        return std::nullopt;
    }
    return readClassFields(file, className);
}

} // namespace qarvo::catalogue
