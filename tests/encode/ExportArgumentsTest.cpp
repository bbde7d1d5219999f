#include "encode/ExportArguments.h"

#include <gtest/gtest.h>

using namespace ExportArguments;

namespace {
QStringList list(std::initializer_list<const char*> items)
{
    QStringList out;
    for (const char* item : items)
        out << QString::fromUtf8(item);
    return out;
}
TspSettings tsp(qint64 bitrate, qint64 mono, qint64 vbr)
{
    TspSettings settings;
    settings.bitrate = bitrate;
    settings.mono = mono;
    settings.vbr = vbr;
    return settings;
}
} // namespace

TEST(ExportArguments, BitrateTableCoversEveryIndexAndPercentage)
{
    const std::map<qint64, int> indices {{1, 32},   {2, 40},   {3, 48},   {4, 56},  {5, 64},   {6, 80},
                                         {7, 96},   {8, 112},  {9, 128},  {10, 160}, {11, 192}, {12, 224},
                                         {13, 256}, {14, 320}, {0, 128},  {15, 128}, {-1, 128}, {25, 128}};
    for (const auto& [index, rate] : indices)
        EXPECT_EQ(bitrateForIndex(index), rate) << index;
    const std::map<qint64, int> percents {{25, 160}, {50, 192}, {75, 256}, {100, 320}, {7, 96}, {0, 128}};
    for (const auto& [value, rate] : percents)
        EXPECT_EQ(bitrateForIndexOrPercent(value), rate) << value;
}

TEST(ExportArguments, LameDefaultsFollowVbrAndSampleBits)
{
    EXPECT_EQ(mp3ExportParams(tsp(11, 0, 0), 16), list({"-b", "192"}));
    EXPECT_EQ(mp3ExportParams(tsp(11, 0, 0), 0), list({"-b", "192"}));
    EXPECT_EQ(mp3ExportParams(tsp(11, 0, 1), 16), list({"-B", "192", "-v"}));
    // More than 16 bits: a maximum rate and no "-v", with or without VBR.
    EXPECT_EQ(mp3ExportParams(tsp(11, 0, 0), 24), list({"-B", "192"}));
    EXPECT_EQ(mp3ExportParams(tsp(11, 0, 1), 24), list({"-B", "192"}));
    EXPECT_EQ(mp3ExportParams(tsp(1, 1, 0), 16), list({"-b", "32", "-a"}));
    EXPECT_EQ(mp3ExportParams(tsp(14, 2, 0), 8), list({"-b", "320"}));  // only 1 means mono
    EXPECT_EQ(mp2ExportParams(tsp(5, 1, 1), 16), list({"-B", "64", "-v", "-a"}));
}

TEST(ExportArguments, LameRipAndFlashSettings)
{
    EXPECT_TRUE(mp3RipParams({}).isEmpty());
    EXPECT_EQ(mp3RipParams({{"bitrate", 12}, {"vbr", 1}, {"mono", 0}}), list({"-v", "-B", "224"}));
    // VBR ignores the percentages, ABR takes them.
    EXPECT_EQ(mp3RipParams({{"bitrate", 75}, {"vbr", 1}}), list({"-v", "-B", "128"}));
    EXPECT_EQ(mp3RipParams({{"bitrate", 75}, {"vbr", 0}}), list({"--abr", "256"}));
    EXPECT_EQ(mp3RipParams({{"bitrate", 8}, {"vbr", 0}, {"mono", 1}}), list({"--abr", "112", "-a"}));

    EXPECT_TRUE(mp3FlashParams({{"whenpossible", false}, {"quality", 50}}).isEmpty());
    const std::map<int, const char*> quality {{0, "32"}, {25, "48"}, {50, "64"}, {75, "96"}, {100, "128"}, {33, "96"}};
    for (const auto& [value, rate] : quality) {
        EXPECT_EQ(mp3FlashParams({{"whenpossible", true}, {"quality", value}}), list({"--abr", rate})) << value;
        EXPECT_EQ(mp2FlashParams({{"whenpossible", true}, {"quality", value}}), list({"--bitrate", rate})) << value;
    }
    EXPECT_EQ(mp3FlashParams({{"whenpossible", true}, {"quality", 100}, {"mono", 1}}), list({"--abr", "128", "-a"}));

    EXPECT_EQ(mp2RipParams({{"bitrate", 10}, {"vbr", 1}}), list({"-v", "-B", "160"}));
    EXPECT_EQ(mp2RipParams({{"bitrate", 100}, {"vbr", 0}, {"mono", 1}}), list({"--bitrate", "320", "-a"}));
}

TEST(ExportArguments, LameTagOptionsInOrderWithGenreMatching)
{
    const QVariantMap tags {{"title", "Song"}, {"artist", "Band"}, {"album", "Record"}, {"track", "3"},
                            {"genre", "  rock  "}, {"year", "1999"}, {"comment", "ignored"}};
    EXPECT_EQ(lameParamsFromComments(tags),
              list({"--tt", "Song", "--ta", "Band", "--tl", "Record", "--tn", "3", "--tg", "Rock", "--ty", "1999"}));
    EXPECT_TRUE(lameParamsFromComments({}).isEmpty());
    EXPECT_EQ(lameParamsFromComments({{"genre", "Bogus Noise"}}), QStringList());
    EXPECT_EQ(lameParamsFromComments({{"year", "2001"}, {"title", "T"}}), list({"--tt", "T", "--ty", "2001"}));

    EXPECT_EQ(matchGenre("HIP-HOP"), "Hip-Hop");
    EXPECT_EQ(matchGenre("christian rock"), "");  // the table's own entry ends in a blank
    EXPECT_EQ(matchGenre("Christian Rock Anthems"), "Christian Rock ");
    EXPECT_EQ(matchGenre("Rock & Roll"), "Rock & Roll");   // whole match before prefix "Rock"
    EXPECT_EQ(matchGenre("Jazz Standards"), "Jazz");       // first prefix in table order
    EXPECT_EQ(matchGenre("psychadelic"), "Psychadelic");
    EXPECT_EQ(matchGenre(""), "");
}

TEST(ExportArguments, AacSettingsNamesAreToppedAt224)
{
    const std::map<qint64, const char*> rates {{1, "032"},  {2, "040"},  {3, "048"},  {4, "056"},  {5, "064"},
                                               {6, "080"},  {7, "096"},  {8, "112"},  {9, "128"},  {0, "128"},
                                               {10, "160"}, {11, "192"}, {12, "224"}, {13, "224"}, {14, "224"},
                                               {25, "160"}, {50, "192"}, {75, "224"}, {100, "224"}};
    for (const auto& [value, rate] : rates)
        EXPECT_EQ(aacRateText(value), rate) << value;
    EXPECT_EQ(aacSettingsName(9, false), "AAC128BESTSTEREO");
    EXPECT_EQ(aacSettingsName(1, true), "AAC032BESTMONO");
    EXPECT_EQ(mqpConvertArguments("in.wav", "/r/AAC", "out.m4a"), list({"-e", "in.wav", "-c", "/r/AAC", "out.m4a"}));
}

TEST(ExportArguments, OggRatesAndEncoderVector)
{
    const std::map<qint64, const char*> rates {{1, "48"},   {2, "48"},   {3, "48"},   {4, "56"},  {5, "64"},
                                               {8, "112"},  {9, "128"},  {11, "192"}, {12, "224"}, {13, "224"},
                                               {14, "224"}, {100, "224"}, {50, "192"}};
    for (const auto& [value, rate] : rates)
        EXPECT_EQ(oggRateText(value), rate) << value;
    EXPECT_EQ(oggParams(11, true), list({"192", "1"}));
    const QVariantMap tags {{"year", "2000"}, {"title", "T"}, {"genre", "Weird Folk"}, {"track", "7"}};
    EXPECT_EQ(oggEncoderArguments(oggParams(11, true), tags, "in.wav", "out.ogg"),
              list({"", "-Q", "-t", "T", "-N", "7", "-G", "Weird Folk", "-d", "2000", "--downmix", "-b", "192",
                    "-o", "out.ogg", "in.wav"}));
    EXPECT_EQ(oggEncoderArguments(oggParams(0, false), {}, "in.wav", "out.ogg"),
              list({"", "-Q", "-b", "128", "-o", "out.ogg", "in.wav"}));
}

TEST(ExportArguments, WmaRates)
{
    EXPECT_EQ(wmaRateText(1), "32k");
    EXPECT_EQ(wmaRateText(14), "320k");
    EXPECT_EQ(wmaRateText(0), "128k");
    EXPECT_EQ(wmaRateText(75), "128k");  // the index table only
    EXPECT_EQ(wmaArguments("in.wav", "out.wma", 7, false),
              list({"-i", "in.wav", "-acodec", "wmav2", "-ab", "96k", "out.wma"}));
    EXPECT_EQ(wmaArguments("in.wav", "out.wma", 11, true),
              list({"-i", "in.wav", "-acodec", "wmav2", "-ab", "192k", "-ac", "1", "out.wma"}));
}

TEST(ExportArguments, DecoderCommandLines)
{
    TspSettings settings;
    EXPECT_EQ(resampleRate("", settings), "44100");
    settings.resample = 1;
    EXPECT_EQ(resampleRate("", settings), "48000");
    EXPECT_EQ(resampleRate("44100", settings), "44100");
    settings.resample = 2;
    EXPECT_EQ(resampleRate("", settings), "44100");
    EXPECT_EQ(resampleArguments("48000"), list({"-af", "resample=48000", "-ar", "48000"}));
    EXPECT_EQ(ffmpegDecodeArguments("a b.flac", "44100", "/l.wav"), list({"-i", "a b.flac", "-ar", "44100", "/l.wav"}));
    EXPECT_EQ(mplayerDecodeArguments("s.wma", "48000", "/l.wav"),
              list({"s.wma", "-af", "resample=48000", "-vc", "null", "-vo", "null", "-ao", "pcm:file=\"/l.wav\""}));
    EXPECT_EQ(cdparanoiaArguments("", 4, false, "t.wav"), list({"4", "t.wav"}));
    EXPECT_EQ(cdparanoiaArguments("/dev/sr0", 12, true, "t.wav"), list({"-d", "/dev/sr0", "-Z", "12", "t.wav"}));
}

TEST(ExportArguments, ClipSettingsAndSoxCommandLine)
{
    QVariantMap request {{"clipsettings", QVariantMap {{"mRipClipStartStored", "5"}, {"mRipClipDurationStored", "10"},
                                                       {"mRipClipFadeInStored", "1"}, {"mRipClipFadeOutStored", "2"},
                                                       {"volume", "-3"}}}};
    ClipSettings clip = ClipSettings::fromRequest(request);
    EXPECT_EQ(soxClipArguments("in.wav", "out.wav", clip),
              list({"in.wav", "out.wav", "trim", "5", "10", "fade", "t", "1", "10", "2", "vol", "-3", "dB"}));
    // The request's own start and length win; empty ones do not.
    request.insert("clipstart", "7");
    request.insert("cliplength", "");
    clip = ClipSettings::fromRequest(request);
    EXPECT_EQ(clip.start, "7");
    EXPECT_EQ(clip.duration, "10");
    clip = ClipSettings::fromRequest({});
    EXPECT_EQ(soxClipArguments("i.wav", "o.wav", clip),
              list({"i.wav", "o.wav", "trim", "0", "0", "fade", "t", "0", "0", "0"}));
}
