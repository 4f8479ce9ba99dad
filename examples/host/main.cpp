// A small host of the qarvo control: it opens a rule store, places the control in its window and
// drives it the way a management console does.
//
//   qarvo-host-example [--naqc] [--list] LOCATION
//
// LOCATION is anything SqlRuleStore::open takes: a SQLite file, sqlite:PATH, or
// postgresql://user@host/database. With --list the example prints the rules the control shows and
// exits; QT_QPA_PLATFORM=offscreen lets it do that without a display. The WMI condition editor
// reads its class catalogue from the folder named by the manager's "ProgramPath" setting, or else
// from share/qarvo/catalogue beside the program's bin/ folder.

#include <qarvo/control/qarvoctrl.h>
#include <qarvo/dataservice/methods.h>
#include <qarvo/rulestore/sqlrulestore.h>

#include <QAbstractItemView>
#include <QApplication>
#include <QCommandLineParser>
#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

#include <cstdio>
#include <functional>

namespace {

// Prints every row of the control's rule list, its columns separated by tabs.
int printRules(const CqarvoCtrl &control)
{
    const auto *list = control.findChild<QAbstractItemView *>(QStringLiteral("ruleList"));
    if (!list || !list->model())
        return 1;
    const QAbstractItemModel &model = *list->model();
    for (int row = 0; row < model.rowCount(); ++row) {
        QStringList columns;
        for (int column = 0; column < model.columnCount(); ++column)
            columns.append(model.index(row, column).data().toString());
        std::printf("%s\n", qUtf8Printable(columns.join(QLatin1Char('\t'))));
    }
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Hosts the qarvo rule control on a rule store."));
    const QCommandLineOption helpOption({QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Show this help and exit."));
    const QCommandLineOption naqcOption(QStringLiteral("naqc"),
                                        QStringLiteral("Show NAQC rules instead of WMI and WQL rules."));
    const QCommandLineOption listOption(QStringLiteral("list"),
                                        QStringLiteral("Print the rules the control shows and exit."));
    parser.addOptions({helpOption, naqcOption, listOption});
    parser.addPositionalArgument(QStringLiteral("location"),
                                 QStringLiteral("The rule store: a SQLite file, sqlite:PATH or a "
                                                "postgresql:// URL."));
    // Parsed before the application object exists, so that --help needs no display.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    if (!parser.parse(arguments) || parser.isSet(helpOption) || parser.positionalArguments().size() != 1) {
        const QString help = parser.helpText().replace(QStringLiteral("<executable_name>"),
                                                       QStringLiteral("qarvo-host-example"));
        std::fputs(qUtf8Printable(help), parser.isSet(helpOption) ? stdout : stderr);
        return parser.isSet(helpOption) ? 0 : 2;
    }
    QApplication app(argc, argv);

    // The store is the data service. The control only borrows it, so it lives as long as the
    // window.
    qarvo::SqlRuleStore store;
    if (!store.open(parser.positionalArguments().constFirst())) {
        std::fprintf(stderr, "qarvo-host-example: %s\n", qUtf8Printable(store.lastError()));
        return 1;
    }

    QWidget window;
    window.setWindowTitle(QStringLiteral("qarvo host example"));
    auto *layout = new QVBoxLayout(&window);
    auto *buttons = new QHBoxLayout;
    layout->addLayout(buttons);
    // The control places its inner frame from its own position, so it goes where a layout
    // without margins puts it: the origin of its container.
    auto *control = new CqarvoCtrl;
    auto *container = new QWidget;
    auto *containerLayout = new QVBoxLayout(container);
    containerLayout->setContentsMargins(0, 0, 0, 0);
    containerLayout->addWidget(control);
    layout->addWidget(container, 1);

    // The view type first: ShowPane sets the list up for the view type it finds.
    const bool naqc = parser.isSet(naqcOption);
    control->setViewType(naqc ? qarvo::category::NAQC : qarvo::category::WMI);
    control->ShowPane(&store, QString(), /*CheckUser: load the list*/ 1, /*cSerCnt*/ 0);

    if (parser.isSet(listOption))
        return printRules(*control);

    // The wizards never reload the list; the host does after each of them.
    const auto addButton = [&](const QString &text, std::function<void()> open) {
        auto *button = new QPushButton(text);
        QObject::connect(button, &QPushButton::clicked, control, [control, open] {
            open();
            control->RefreshList();
        });
        buttons->addWidget(button);
    };
    if (naqc) {
        addButton(QStringLiteral("New NAQC Rule…"), [&] { control->ShowRQCRuleWzd(&store); });
    } else {
        addButton(QStringLiteral("New WMI Rule…"), [&] { control->ShowWMIRuleWzd(&store); });
        addButton(QStringLiteral("New WQL Rule…"), [&] { control->ShowWQLRuleWzd(&store); });
    }
    addButton(QStringLiteral("Refresh"), [] {});
    buttons->addStretch();

    window.resize(900, 620);
    window.show();
    return app.exec();
}
