// Intrusive red-black tree: rebalancing and in-order walk.
#include "antispoof/rbtree.h"

namespace {

// Each mirror pair is one template: swapping the two sides gives the other half.
using rb_side = rb_node* rb_node::*;

bool rb_is_red(const rb_node* node) { return node != nullptr && rb_color(node) == RB_RED; }

// Let `replacement` (or nothing) take the slot of `old` under `parent`, or the root word.
void rb_change_child(const rb_node* old, rb_node* replacement, rb_node* parent, rb_root* root) {
  if (parent == nullptr) {
    root->node = replacement;
  } else if (parent->left == old) {
    parent->left = replacement;
  } else {
    parent->right = replacement;
  }
}

// The right child of `node` becomes the top of the subtree.
template <rb_side Left, rb_side Right> void rb_rotate_left(rb_node* node, rb_root* root) {
  rb_node* top = node->*Right;
  rb_node* parent = rb_parent(node);
  node->*Right = top->*Left;
  if (top->*Left != nullptr) rb_set_parent(top->*Left, node);
  top->*Left = node;
  rb_set_parent(top, parent);
  rb_change_child(node, top, parent, root);
  rb_set_parent(node, top);
}
template <rb_side Left, rb_side Right> void rb_rotate_right(rb_node* node, rb_root* root) {
  rb_rotate_left<Right, Left>(node, root);
}

// One step of the repair for a red `node` whose red parent is the Left child of `grandparent`. The node from which the
// walk goes on.
template <rb_side Left, rb_side Right>
rb_node* rb_insert_step(rb_node* node, rb_node* parent, rb_node* grandparent, rb_root* root) {
  rb_node* uncle = grandparent->*Right;
  if (rb_is_red(uncle)) {
    rb_set_color(uncle, RB_BLACK);
    rb_set_color(parent, RB_BLACK);
    rb_set_color(grandparent, RB_RED);
    return grandparent;
  }
  if (node == parent->*Right) {
    rb_rotate_left<Left, Right>(parent, root);
    rb_node* lower = parent;
    parent = node;
    node = lower;
  }
  rb_set_color(parent, RB_BLACK);
  rb_set_color(grandparent, RB_RED);
  rb_rotate_right<Left, Right>(grandparent, root);
  return node;
}

// One step of the repair for `node` (or nothing) that is the Left child of `parent` and one black node short. The node
// that is short next, or the root when the tree is in order.
template <rb_side Left, rb_side Right> rb_node* rb_erase_step(rb_node* parent, rb_root* root) {
  rb_node* sibling = parent->*Right;
  if (rb_is_red(sibling)) {
    rb_set_color(sibling, RB_BLACK);
    rb_set_color(parent, RB_RED);
    rb_rotate_left<Left, Right>(parent, root);
    sibling = parent->*Right;
  }
  // A side that is a black node short has a sibling.
  if (!rb_is_red(sibling->*Left) && !rb_is_red(sibling->*Right)) { // NOLINT(clang-analyzer-core.NullDereference)
    rb_set_color(sibling, RB_RED);
    return parent;
  }
  if (!rb_is_red(sibling->*Right)) {
    rb_set_color(sibling->*Left, RB_BLACK);
    rb_set_color(sibling, RB_RED);
    rb_rotate_right<Left, Right>(sibling, root);
    sibling = parent->*Right;
  }
  rb_set_color(sibling, rb_color(parent));
  rb_set_color(parent, RB_BLACK);
  rb_set_color(sibling->*Right, RB_BLACK);
  rb_rotate_left<Left, Right>(parent, root);
  return root->node;
}

void rb_erase_color(rb_node* node, rb_node* parent, rb_root* root) {
  while (node != root->node && !rb_is_red(node)) {
    node = parent->left == node ? rb_erase_step<&rb_node::left, &rb_node::right>(parent, root)
                                : rb_erase_step<&rb_node::right, &rb_node::left>(parent, root);
    parent = rb_parent(node);
  }
  if (node != nullptr) rb_set_color(node, RB_BLACK);
}

template <rb_side Side> rb_node* rb_outermost(rb_node* node) {
  if (node == nullptr) return nullptr;
  while (node->*Side != nullptr) node = node->*Side;
  return node;
}

template <rb_side Left, rb_side Right> rb_node* rb_neighbour(const rb_node* node) {
  if (rb_parent(node) == node) return nullptr;
  if (node->*Right != nullptr) return rb_outermost<Left>(node->*Right);
  rb_node* parent = rb_parent(node);
  while (parent != nullptr && node == parent->*Right) {
    node = parent;
    parent = rb_parent(node);
  }
  return parent;
}

} // namespace

void rb_insert_color(rb_node* node, rb_root* root) {
  for (rb_node* parent = rb_parent(node); rb_is_red(parent); parent = rb_parent(node)) {
    rb_node* grandparent = rb_parent(parent);
    node = parent == grandparent->left
               ? rb_insert_step<&rb_node::left, &rb_node::right>(node, parent, grandparent, root)
               : rb_insert_step<&rb_node::right, &rb_node::left>(node, parent, grandparent, root);
  }
  rb_set_color(root->node, RB_BLACK);
}

void rb_erase(rb_node* node, rb_root* root) {
  rb_node* child;  // takes the place that falls empty: the node's own, or its successor's
  rb_node* parent; // of that place
  uintptr_t removed_color = rb_color(node);
  if (node->left != nullptr && node->right != nullptr) {
    rb_node* successor = rb_outermost<&rb_node::left>(node->right);
    removed_color = rb_color(successor);
    child = successor->right;
    parent = rb_parent(successor);
    if (parent == node) {
      parent = successor;
    } else {
      if (child != nullptr) rb_set_parent(child, parent);
      parent->left = child;
      successor->right = node->right;
      rb_set_parent(node->right, successor);
    }
    successor->parent_color = node->parent_color;
    successor->left = node->left;
    rb_set_parent(node->left, successor);
    rb_change_child(node, successor, rb_parent(node), root);
  } else {
    child = node->left != nullptr ? node->left : node->right;
    parent = rb_parent(node);
    if (child != nullptr) rb_set_parent(child, parent);
    rb_change_child(node, child, parent, root);
  }
  if (removed_color == RB_BLACK) rb_erase_color(child, parent, root);
}

rb_node* rb_first(const rb_root* root) { return rb_outermost<&rb_node::left>(root->node); }
rb_node* rb_last(const rb_root* root) { return rb_outermost<&rb_node::right>(root->node); }
rb_node* rb_next(const rb_node* node) { return rb_neighbour<&rb_node::left, &rb_node::right>(node); }
rb_node* rb_prev(const rb_node* node) { return rb_neighbour<&rb_node::right, &rb_node::left>(node); }

void rb_replace_node(rb_node* old, rb_node* replacement, rb_root* root) {
  rb_change_child(old, replacement, rb_parent(old), root);
  if (old->left != nullptr) rb_set_parent(old->left, replacement);
  if (old->right != nullptr) rb_set_parent(old->right, replacement);
  *replacement = *old;
}
