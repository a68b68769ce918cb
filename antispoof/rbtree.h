// Intrusive red-black tree: nodes live inside the owner's records, keys are the owner's business.
//
// To insert, the owner walks down comparing its own keys, links the node where the walk ended (rb_link_node) and has
// the tree rebalanced (rb_insert_color). Nothing is allocated, freed or locked here; every call is O(log n).
#pragma once

#include <cstdint>

constexpr uintptr_t RB_RED = 0;
constexpr uintptr_t RB_BLACK = 1;

struct rb_node {
  uintptr_t parent_color; // parent's address, colour in bit 0; the node's own address: in no tree
  rb_node* right;
  rb_node* left;
};
static_assert(sizeof(rb_node) == 3 * sizeof(void*) && alignof(rb_node) >= 4);

struct rb_root {
  rb_node* node; // null: empty
};

inline rb_node* rb_parent(const rb_node* node) {
  return reinterpret_cast<rb_node*>(node->parent_color & ~static_cast<uintptr_t>(3));
}
inline uintptr_t rb_color(const rb_node* node) { return node->parent_color & 1; }

// Replace the parent's address, or the colour, and keep the other.
inline void rb_set_parent(rb_node* node, rb_node* parent) {
  node->parent_color = reinterpret_cast<uintptr_t>(parent) | (node->parent_color & 3);
}
inline void rb_set_color(rb_node* node, uintptr_t color) {
  // A node that is coloured is there: a side that is a black node short has a sibling.
  node->parent_color = (node->parent_color & ~static_cast<uintptr_t>(1)) | color; // NOLINT(clang-analyzer-core.*)
}

// Make `node` a red leaf in `link`, the empty child slot of `parent` (or the root word, with a null parent).
inline void rb_link_node(rb_node* node, rb_node* parent, rb_node** link) {
  *node = {reinterpret_cast<uintptr_t>(parent), nullptr, nullptr};
  *link = node;
}

// Rebalance after rb_link_node.
void rb_insert_color(rb_node* node, rb_root* root);

// Take `node` out and rebalance. Its words are left as they are.
void rb_erase(rb_node* node, rb_root* root);

// In-order walk; null past either end, in an empty tree, and for a node that is marked as in no tree.
rb_node* rb_first(const rb_root* root);
rb_node* rb_last(const rb_root* root);
rb_node* rb_next(const rb_node* node);
rb_node* rb_prev(const rb_node* node);

// Put `replacement` in the place of `old`, without rebalancing: it must sort there.
void rb_replace_node(rb_node* old, rb_node* replacement, rb_root* root);
