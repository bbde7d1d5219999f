#include <QApplication>
#include <cstdio>
int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    std::printf("Velmora %s\n", VELMORA_VERSION);
    return 0;
}
