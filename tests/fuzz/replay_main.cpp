// Runs a fuzz target over every file of the folders named on its command line, in name order,
// as libFuzzer replays a corpus: each seed, and each input a fuzzer found, is a regression case.

#include "fuzz_support.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char* argv[]) {
    QStringList inputs;
    for (int i = 1; i < argc; ++i) {
        for (const QFileInfo& file :
             QDir(QString::fromLocal8Bit(argv[i])).entryInfoList(QDir::Files | QDir::Hidden))
            inputs << file.filePath();
    }
    inputs.sort();
    require(!inputs.isEmpty(), "there are inputs to replay");
    for (const QString& path : inputs) {
        std::fprintf(stderr, "%s\n", qPrintable(path));
        const QByteArray bytes = readBytes(path);
        const std::vector<uint8_t> input(bytes.begin(), bytes.end()); // of exactly its size
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("%lld inputs replayed\n", static_cast<long long>(inputs.size()));
    return 0;
}
