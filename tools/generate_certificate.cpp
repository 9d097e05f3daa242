// Creates the application certificate and private key of the gateway, as the
// configurator's certificate form asks for them.
#include "tools/certificateoptions.h"
#include "tools/certificatewriter.h"

#include <cstdio>
#include <cstring>

int main(int argc, char** argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::fputs(CertificateOptions::Usage(), stdout);
        return 0;
    }
    CertificateOptions options;
    std::string error;
    if (!options.Parse(argc, argv, error)) {
        std::fprintf(stderr, "generate_certificate: %s\n%s", error.c_str(), CertificateOptions::Usage());
        return 2;
    }
    CertificateWriter writer;
    const CertificateWriter::Result result = writer.Write(options, error);
    if (result != CertificateWriter::Done) {
        std::fprintf(stderr, "generate_certificate: %s\n", error.c_str());
        return result;
    }
    std::printf("certificate: %s\nprivate key: %s\n", writer.certificatePath.c_str(), writer.keyPath.c_str());
    return 0;
}
