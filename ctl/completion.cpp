// The completion script for bash.
#include "ctl/completion.h"

#include "ctl/settings.h"

namespace {

// What the script knows of a command: its words by the position of the argument, and its options.
class script_writer {
public:
  explicit script_writer(const command_line& line) : line_(line) {}
  std::string write();

private:
  void command(const CLI::App& app, const std::string& path);
  void option(const CLI::Option& option, const std::string& path, int position);
  void offer(const std::string& pattern, const std::string& action) {
    cases_ += "    '" + pattern + "') " + action + " ;;\n";
  }

  const command_line& line_;
  std::string commands_; // patterns of "path word" that lead to a command
  std::string flags_;    // options by path
  std::string cases_;    // "path/position" and "path --option"
  std::string valued_;   // options that take a value
};

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string words_action(const std::vector<std::string>& words) { return "words='" + joined(words) + "'"; }

void script_writer::option(const CLI::Option& option, const std::string& path, int position) {
  const auto known = line_.words.find(&option);
  const std::string key =
      option.get_positional() ? path + "/" + std::to_string(position) : path + " " + option.get_name();
  if (known == line_.words.end()) return;
  if (known->second.files) return offer(key, "files=1");
  if (!known->second.setting_value) return offer(key, words_action(known->second.words));
  offer(key, "words=$(_lineidctl_values \"$before\")");
}

void script_writer::command(const CLI::App& app, const std::string& path) {
  std::vector<std::string> subs;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    subs.push_back(sub->get_name());
    const std::string below = path + " " + sub->get_name();
    commands_ += (commands_.empty() ? "'" : " | '") + below + "'";
    command(*sub, below);
  }
  if (!subs.empty()) offer(path + "/0", words_action(subs));
  std::vector<std::string> flags;
  int position = 0;
  for (const CLI::Option* each : app.get_options([](const CLI::Option*) { return true; })) {
    option(*each, path, position);
    if (each->get_positional()) {
      const bool many = each->get_expected_max() > 1;
      for (int more = position + 1; many && more < position + 8; ++more) option(*each, path, more);
      ++position;
      continue;
    }
    const std::string name = "--" + each->get_lnames().at(0);
    flags.push_back(name);
    if (each->get_items_expected_max() == 0) continue;
    valued_ += valued_.empty() ? "'" : " | '";
    valued_.append(path).append(" ").append(name).append("'");
  }
  flags_ += "    '" + path + "') flags='" + joined(flags) + "' ;;\n";
}

std::string script_writer::write() {
  command(line_.app, "");
  std::string values;
  for (const setting_row& row : all_settings()) {
    const std::vector<std::string> words = value_words(row.rule);
    if (!words.empty()) values += "    " + std::string(row.name) + ") echo '" + joined(words) + "' ;;\n";
  }
  return "# Completion of lineidctl for bash; written by lineidctl itself.\n"
         "_lineidctl_values() {\n  case $1 in\n" +
         values +
         "  esac\n}\n"
         "_lineidctl() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} path='' before='' words='' flags='' files='' option='' position=0 "
         "i word\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    word=${COMP_WORDS[i]}\n"
         "    if [ -n \"$option\" ]; then option=''; continue; fi\n"
         "    case \"$path $word\" in\n      " +
         valued_ + ") option=$word; continue ;;\n      " + commands_ +
         ") path=\"$path $word\"; position=0; continue ;;\n"
         "    esac\n"
         "    case $word in -*) ;; *) position=$((position + 1)); before=$word ;; esac\n"
         "  done\n"
         "  case \"$path\" in\n" +
         flags_ +
         "  esac\n"
         "  local place=\"$path/$position\"\n"
         "  [ -n \"$option\" ] && place=\"$path $option\" flags=''\n"
         "  case \"$place\" in\n" +
         cases_ +
         "  esac\n"
         "  case $current in -*) words=$flags; files='' ;; esac\n"
         "  if [ -n \"$files\" ]; then\n"
         "    COMPREPLY=($(compgen -f -- \"$current\"))\n"
         "  else\n"
         "    COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
         "  fi\n"
         "  case ${COMPREPLY[0]-} in *=) compopt -o nospace 2>/dev/null ;; esac\n"
         "}\n"
         "complete -o filenames -F _lineidctl lineidctl\n";
}

} // namespace

std::string completion_bash(const command_line& line) { return script_writer(line).write(); }
