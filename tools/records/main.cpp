#include "command_line.h"
#include "record_commands.h"

#include <QCoreApplication>
#include <QFile>
#include <cstdio>

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QFile out;
    QFile err;
    if (!out.open(stdout, QIODevice::WriteOnly) ||
        !err.open(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered))
        return kUnusable;
    return runRecordsTool(QCoreApplication::arguments(), out, err);
}
