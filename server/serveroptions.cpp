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
        error = "ожидается 7 аргументов, получено " + std::to_string(argc - 1);
        return Bad;
    }
    configPath = argv[1];
    if (configPath.empty()) {
        error = "путь к конфигурации пуст";
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
        error = "порт — число от 1 до 65535, получено «" + port_text + "»";
        return Bad;
    }
    port = std::uint16_t(value);
    if (!CServerLog::LevelFromWord(argv[3], logLevel)) {
        error = std::string("неизвестный уровень журнала «") + argv[3] +
                "» (none, fatal, error, warning, info, debug, verbose)";
        return Bad;
    }
    const std::string anonymous = argv[4];
    if (anonymous != "true" && anonymous != "false") {
        error = "анонимный доступ — true или false, получено «" + anonymous + "»";
        return Bad;
    }
    allowAnonymous = anonymous == "true";
    certificatePath = argv[5];
    privateKeyPath = argv[6];
    trustFolder = argv[7];
    if (certificatePath.empty() != privateKeyPath.empty()) {
        error = "сертификат и закрытый ключ задаются вместе: оба или ни одного";
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
        error = "в " + path + " нет параметров запуска: сохраните их в окне запуска сервера конфигуратора";
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
    return "Запуск: " + program + " CONFIG PORT LOGLEVEL ANONYMOUS CERTIFICATE KEY TRUSTFOLDER\n        " +
           program +
           " --from-file CONFIG\n"
           "\n"
           "  CONFIG       файл конфигурации (.cfg)\n"
           "  PORT         TCP-порт, от 1 до 65535\n"
           "  LOGLEVEL     none, fatal, error, warning, info, debug или verbose\n"
           "  ANONYMOUS    true — анонимные сессии разрешены, false — запрещены\n"
           "  CERTIFICATE  сертификат сервера в форме DER или \"\" — без него\n"
           "  KEY          закрытый ключ в форме PEM или \"\" — без него\n"
           "  TRUSTFOLDER  папка доверенных сертификатов клиентов (*.der) или \"\"\n"
           "\n"
           "Вторая форма берёт шесть значений после CONFIG из параметров запуска,\n"
           "сохранённых в CONFIG окном запуска сервера конфигуратора.\n"
           "\n"
           "Без сертификата и ключа сервер один раз делает свой, самоподписанный, и\n"
           "хранит его в $HOME/Documents/TARN/OPC UA/pki. В обоих случаях он предлагает\n"
           "Basic256Sha256 (Sign, SignAndEncrypt) кроме None, принимает пароли только\n"
           "зашифрованными и сертификаты пользователей из доверенных.\n"
           "Логины и пароли берутся из блока пользователей CONFIG. CONFIG, строки\n"
           "которого загружаются не все, отвергается: первая плохая строка — в stderr.\n"
           "\n"
           "Код выхода: 0 — остановлен сигналом, 1 — сбой запуска (например, порт занят),\n"
           "2 — отвергнуты аргументы или конфигурация; перезапуск тут не поможет.\n";
}
