// Templates: where one is wrong, how long its text can become, what it becomes. Needs no agent. The library's parameter
// table of this process is used, from one thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

constexpr uint32_t EXPANSION_LIMIT = 248; // octets; the value that would cross it is left out, and the text ends there

struct template_fault {
  size_t at; // offset in the template as it was given
  std::string text;
};

// The first thing that is wrong with a template as an operator gives it, "%_" for a space.
std::optional<template_fault> template_check(const std::string& given);
// A fault with the template and a caret under the place, several lines.
std::string template_caret(const std::string& given, const template_fault& fault);

// "%_" to spaces: how the agent stores it. Throws ctl_failure (STATUS_TEMPLATE) with the caret when it is wrong.
std::string template_stored(const std::string& what, const std::string& given);
// Spaces to "%_".
std::string template_alias(const std::string& stored);

// The longest text of a stored template: with the values that the agent itself finds, and with every letter pinned to a
// text of 50 octets.
struct template_length {
  size_t usual;
  size_t pinned;
};
template_length template_longest(const std::string& stored);
// What is odd about a stored template without being wrong; one sentence each.
std::vector<std::string> template_warnings(const std::string& stored);

using letter_texts = std::vector<std::pair<char, std::string>>;
// Letters without a text become "0", as in the agent.
std::string template_expand(const std::string& stored, const letter_texts& letters);

// Octets that are no printable text as \xNN.
std::string printable(std::string_view text);
