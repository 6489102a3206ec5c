#include "platform/linux/app/CommandLine.h"

#include <QCommandLineParser>
#include <QStringList>

#include <algorithm>
#include <iostream>

namespace wh::platform {

CommandLine::CommandLine(std::string program, std::string summary, std::string versionText,
                         std::vector<CommandLineOption> options)
    : program_(std::move(program)),
      summary_(std::move(summary)),
      versionText_(std::move(versionText)),
      options_(std::move(options)) {}

std::optional<int> CommandLine::parse(int argc, char** argv) {
  QCommandLineParser parser;
  parser.setApplicationDescription(QString::fromStdString(summary_));
  const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this help and exit."));
  const QCommandLineOption version({QStringLiteral("v"), QStringLiteral("version")},
                                   QStringLiteral("Show the version and exit."));
  parser.addOption(help);
  parser.addOption(version);
  for (const auto& option : options_) {
    parser.addOption(QCommandLineOption(QString::fromStdString(option.name), QString::fromStdString(option.description)));
  }
  QStringList arguments{QString::fromStdString(program_)};
  for (int i = 1; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);

  // Without an application object Qt cannot name the program in the usage line: name it here.
  const auto usage = [&] {
    std::string text = parser.helpText().toStdString();
    const std::string placeholder = "<executable_name>";
    if (const auto at = text.find(placeholder); at != std::string::npos) text.replace(at, placeholder.size(), program_);
    return text;
  };
  if (!parser.parse(arguments) || !parser.positionalArguments().isEmpty()) {
    const QString problem = parser.errorText().isEmpty()
                                ? QStringLiteral("unexpected argument '%1'").arg(parser.positionalArguments().first())
                                : parser.errorText();
    std::cerr << program_ << ": " << problem.toStdString() << "\n" << shortUsage();
    return usageError;
  }
  if (parser.isSet(help)) {
    std::cout << usage();
    return 0;
  }
  if (parser.isSet(version)) {
    std::cout << versionText_ << "\n";
    return 0;
  }
  for (const auto& option : options_) {
    if (parser.isSet(QString::fromStdString(option.name))) set_.push_back(option.name);
  }
  return std::nullopt;
}

std::string CommandLine::shortUsage() const {
  std::string text = "Usage: " + program_ + " [--help | --version";
  for (const auto& option : options_) text += " | --" + option.name;
  return text + "]\n";
}

bool CommandLine::isSet(const std::string& name) const {
  return std::find(set_.begin(), set_.end(), name) != set_.end();
}

}  // namespace wh::platform
