// A station that publishes one controller to the broker on the port given, until it is killed.
#include "plant/plant_store.h"
#include "platform/mqtt_link.h"
#include "publish/publisher.h"

#include <QCoreApplication>

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    if (argc < 2)
        return 2;
    gControlEnabled[0] = true;
    gPvTag[0] = QStringLiteral("TIC-1");
    gPV[0] = PlantValue(42.5);
    noteReadAnswered(0);
    buildActiveList();
    Publisher publisher(makeMosquittoLink(nullptr));
    PublishConfig c;
    c.enabled = true;
    c.port = QByteArray(argv[1]).toInt();
    c.site = QStringLiteral("mill");
    c.station = QStringLiteral("cr1");
    publisher.apply(c);
    return QCoreApplication::exec();
}
