// What a plug-in of the client does with the library: it talks to the gateway through
// its presenter and reads the shared configuration.
#include <VantorTypes.h>
#include <VantorUtils.h>

#include <CDataBase.h>
#include <LmPresenterClass.h>

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);

    LmPresenterClass presenter(QStringLiteral("examplePlugin"));
    out << "plug-in " << presenter.pluginPid() << " loaded\n";

    const auto sections = CDataBase::GetInstance()->sections();
    out << "static configuration: " << sections.size() << " sections from "
        << CDataBase::GetInstance()->source() << "\n";
    out << "export format of a numeric column: " << ExportFormatNumber << "\n";
    return 0;
}
