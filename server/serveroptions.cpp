#include "server/serveroptions.h"

#include "server/gatewayconfig.h"

#include <vector>

CServerOptions::Result CServerOptions::Parse(int argc, const char* const* argv, std::string& error)
{
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help" || a == "-h")
            return Help;
    }
    if (argc == 3 && std::string(argv[1]) == "--from-file")
        return ParseFromFile(argv[2], error);
    if (argc != 8) {
        error = "expected 7 arguments, got " + std::to_string(argc - 1);
        return Bad;
    }
    configPath = argv[1];
    if (configPath.empty()) {
        error = "the configuration path is empty";
        return Bad;
    }
    const std::string port_text = argv[2];
    long value = 0;
    bool digits = !port_text.empty() && port_text.size() <= 5;
    for (char c : port_text)
        digits = digits && c >= '0' && c <= '9';
    if (digits)
        value = std::stol(port_text);
    if (!digits || value < 1 || value > 65535) {
        error = "the port must be a number from 1 to 65535, got \"" + port_text + "\"";
        return Bad;
    }
    port = std::uint16_t(value);
    if (!CServerLog::LevelFromWord(argv[3], logLevel)) {
        error = std::string("unknown log level \"") + argv[3] +
                "\" (none, fatal, error, warning, info, debug, verbose)";
        return Bad;
    }
    const std::string anonymous = argv[4];
    if (anonymous != "true" && anonymous != "false") {
        error = "anonymous access must be true or false, got \"" + anonymous + "\"";
        return Bad;
    }
    allowAnonymous = anonymous == "true";
    certificatePath = argv[5];
    privateKeyPath = argv[6];
    trustFolder = argv[7];
    if (certificatePath.empty() != privateKeyPath.empty()) {
        error = "the certificate and the private key go together: give both or neither";
        return Bad;
    }
    return Ok;
}

CServerOptions::Result CServerOptions::ParseFromFile(const std::string& path, std::string& error)
{
    CGatewayConfig config;
    if (!config.Read(path, error))
        return Bad;
    if (config.options.empty()) {
        error = path + " holds no run parameters: save them from the start dialog of the configurator";
        return Bad;
    }
    // The saved block goes through the same checks as a command line.
    std::vector<std::string> args = {"server", path};
    for (const char* key : {"port", "log", "allowanonimus", "derFile", "pemFile", "trustFolder"}) {
        const auto it = config.options.find(key);
        args.push_back(it == config.options.end() ? std::string() : it->second);
    }
    std::vector<const char*> argv;
    for (const std::string& a : args)
        argv.push_back(a.c_str());
    return Parse(int(argv.size()), argv.data(), error);
}

std::string CServerOptions::Usage(const std::string& program)
{
    return "Usage: " + program + " CONFIG PORT LOGLEVEL ANONYMOUS CERTIFICATE KEY TRUSTFOLDER\n       " +
           program +
           " --from-file CONFIG\n"
           "\n"
           "  CONFIG       scrambled configuration file (.cfg)\n"
           "  PORT         TCP port, 1 to 65535\n"
           "  LOGLEVEL     none, fatal, error, warning, info, debug or verbose\n"
           "  ANONYMOUS    true to allow anonymous sessions, false to refuse them\n"
           "  CERTIFICATE  server certificate in DER form, or \"\" for none\n"
           "  KEY          private key in PEM form, or \"\" for none\n"
           "  TRUSTFOLDER  folder of trusted client certificates (*.der), or \"\"\n"
           "\n"
           "The second form takes the six values after CONFIG from the run parameters\n"
           "saved in CONFIG by the configurator's start dialog.\n"
           "\n"
           "Without a certificate and key the server makes its own, self-signed, once,\n"
           "and keeps it in $HOME/Documents/TARN/OPC UA/pki. Either way it offers\n"
           "Basic256Sha256 (Sign, SignAndEncrypt) besides None, takes passwords only\n"
           "encrypted, and accepts X.509 user tokens from the trusted certificates.\n"
           "Logins and passwords come from the users block of CONFIG. A CONFIG whose\n"
           "rows do not all load is refused, with the first bad row on stderr.\n";
}
