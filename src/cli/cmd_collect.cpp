// velmora-cli collect: the audio files of a folder with destinations and tags.
#include "cli/CliCommand.h"

#include "core/StringUtils.h"
#include "platform/FileNames.h"
#include "tabs/FolderCollector.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace {
int run(const QStringList& arguments)
{
    bool json = false;
    QStringList folders;
    for (const QString& argument : arguments) {
        if (argument == QLatin1String("--json"))
            json = true;
        else if (argument.startsWith(QLatin1String("--"))) {
            std::fprintf(stderr, "velmora-cli collect: unknown option %s\n", qPrintable(argument));
            return 2;
        } else
            folders.append(argument);
    }
    if (folders.size() != 1) {
        std::fprintf(stderr, "velmora-cli collect: give one folder or file\n");
        return 2;
    }
    QStringList unreadable;
    const std::optional<QVariantMap> collection =
        contentsOfFolder(folders.first(), nullptr, {}, defaultAudioTypes(), &unreadable);
    if (!collection) {
        std::fprintf(stderr, "velmora-cli collect: %s: no such file or folder\n", qPrintable(folders.first()));
        return 1;
    }
    const QVariantList leaves = collection->value(QStringLiteral("leafarray")).toList();
    const QVariantList records = collection->value(QStringLiteral("commentarray")).toList();
    const QVariantList destinations = collection->value(QStringLiteral("destinationarray")).toList();
    for (qsizetype i = 0; i < leaves.size(); ++i) {
        const QVariantMap record = records.at(i).toMap();
        if (json) {
            const QJsonObject line{{"source", leaves.at(i).toString()},
                                   {"destination", destinations.at(i).toString()},
                                   {"tags", QJsonObject::fromVariantMap(record)}};
            std::printf("%s\n", QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
            continue;
        }
        std::printf("%s\n  destination: %s\n", qPrintable(leaves.at(i).toString()),
                    qPrintable(destinations.at(i).toString()));
        for (auto it = record.constBegin(); it != record.constEnd(); ++it)
            std::printf("  %s: %s\n", qPrintable(it.key()), qPrintable(it.value().toString()));
    }
    for (const QString& name : unreadable)
        std::fprintf(stderr, "velmora-cli collect: %s\n", qPrintable(FileNames::unreadableNameMessage(name)));
    if (!unreadable.isEmpty())
        std::fprintf(stderr, "%lld collected, %lld skipped\n", static_cast<long long>(leaves.size()),
                     static_cast<long long>(unreadable.size()));
    return 0;
}

CliRegistration reg({"collect", "[--json] FOLDER",
                     "List the audio files of a folder (deeply) in Finder order with their destination folder "
                     "and track record (one JSON object per line with --json).",
                     run});
} // namespace
