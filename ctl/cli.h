// The command line: one description of it for parsing, help and completion.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

// What completion may offer for an argument.
struct argument_words {
  std::vector<std::string> words;
  bool files = false;
  bool setting_value = false; // the values of the setting before it
};

struct command_line {
  command_line();

  CLI::App app;
  std::map<const CLI::Option*, argument_words> words;
  std::function<void()> run; // set by parsing

  // Arguments of all commands.
  unsigned oltid = 0;
  std::optional<uint32_t> key;
  bool json = false;
  bool all = false;
  bool dry_run = false;
  std::string name;
  std::string value;
  std::string text;
  std::string mac;
  std::string kind;
  std::string circuit_template = "text";
  std::vector<std::string> names;
  std::vector<uint16_t> onu;
  unsigned number = 0;
  uint16_t rack = 0;
  uint16_t frame = 0;

private:
  CLI::App* add(CLI::App* parent, const std::string& command, const std::string& about, std::function<void()> work,
                bool needs_agent = true);
  CLI::App* group(CLI::App* parent, const std::string& command, const std::string& about);
  void oltid_of(CLI::App* command);
  CLI::Option* choice(CLI::App* command, const std::string& argument, std::string& target,
                      const std::vector<std::string>& choices, const std::string& help);
  void add_settings();
  void add_reports();
  void add_bindings();
  void add_profiles();
  void add_letters();
  void add_together();
  void add_files();
  void add_template();
  uint8_t instance() const { return static_cast<uint8_t>(oltid); }
};
