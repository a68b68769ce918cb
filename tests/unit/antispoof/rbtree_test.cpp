// The red-black tree: invariants under random operations, and the corners of walking, erasing and replacing.
#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "antispoof/rbtree.h"

namespace {

struct item {
  rb_node node;
  uint32_t key;
};

item* item_of(rb_node* node) { return reinterpret_cast<item*>(node); }

bool tree_insert(rb_root& root, item& added) {
  rb_node* parent = nullptr;
  rb_node** link = &root.node;
  while (*link != nullptr) {
    parent = *link;
    if (added.key == item_of(parent)->key) return false;
    link = added.key < item_of(parent)->key ? &parent->left : &parent->right;
  }
  rb_link_node(&added.node, parent, link);
  rb_insert_color(&added.node, &root);
  return true;
}

// Black nodes on every path down from `node`, or -1 where a rule is broken.
int black_height(rb_node* node, rb_node* parent) {
  if (node == nullptr) return 0;
  const bool red = (node->parent_color & 1) == 0;
  if (rb_parent(node) != parent) return -1;
  if (red && (parent == nullptr || (parent->parent_color & 1) == 0)) return -1;
  const int left = black_height(node->left, node);
  const int right = black_height(node->right, node);
  if (left < 0 || left != right) return -1;
  return left + (red ? 0 : 1);
}

std::vector<uint32_t> keys_forward(const rb_root& root) {
  std::vector<uint32_t> keys;
  for (rb_node* node = rb_first(&root); node != nullptr; node = rb_next(node)) keys.push_back(item_of(node)->key);
  return keys;
}

std::vector<uint32_t> keys_backward(const rb_root& root) {
  std::vector<uint32_t> keys;
  for (rb_node* node = rb_last(&root); node != nullptr; node = rb_prev(node)) keys.push_back(item_of(node)->key);
  return keys;
}

TEST(rbtree, node_is_three_words_parent_first) {
  EXPECT_EQ(offsetof(rb_node, parent_color), 0U);
  EXPECT_EQ(offsetof(rb_node, right), sizeof(void*));
  EXPECT_EQ(offsetof(rb_node, left), 2 * sizeof(void*));
}

TEST(rbtree, empty_and_single) {
  rb_root root = {};
  EXPECT_EQ(rb_first(&root), nullptr);
  EXPECT_EQ(rb_last(&root), nullptr);

  item one = {{}, 1};
  ASSERT_TRUE(tree_insert(root, one));
  EXPECT_EQ(one.node.parent_color, 1U) << "the root is black and has no parent";
  EXPECT_EQ(rb_first(&root), &one.node);
  EXPECT_EQ(rb_last(&root), &one.node);
  EXPECT_EQ(rb_next(&one.node), nullptr);
  EXPECT_EQ(rb_prev(&one.node), nullptr);
  rb_erase(&one.node, &root);
  EXPECT_EQ(root.node, nullptr);
}

TEST(rbtree, node_in_no_tree_has_no_neighbours) {
  item other = {{}, 2};
  item loose = {{0, &other.node, &other.node}, 1};
  loose.node.parent_color = reinterpret_cast<uintptr_t>(&loose.node);
  EXPECT_EQ(rb_next(&loose.node), nullptr);
  EXPECT_EQ(rb_prev(&loose.node), nullptr);
}

TEST(rbtree, parent_and_colour_are_kept_apart) {
  item a = {}, b = {};
  rb_set_parent(&a.node, &b.node);
  rb_set_color(&a.node, 1);
  EXPECT_EQ(a.node.parent_color, reinterpret_cast<uintptr_t>(&b.node) + 1);
  rb_set_parent(&a.node, nullptr);
  EXPECT_EQ(a.node.parent_color, 1U);
  rb_set_color(&a.node, 0);
  EXPECT_EQ(a.node.parent_color, 0U);
}

// Every tree of up to seven keys, each erased first once: all erase shapes, two children and one child included.
TEST(rbtree, erase_of_each_node_of_each_small_tree) {
  for (uint32_t count = 1; count <= 7; ++count) {
    std::vector<uint32_t> order(count);
    for (uint32_t i = 0; i < count; ++i) order[i] = i;
    do {
      for (uint32_t gone = 0; gone < count; ++gone) {
        std::vector<item> items(count);
        rb_root root = {};
        for (uint32_t i = 0; i < count; ++i) {
          items[order[i]].key = order[i];
          ASSERT_TRUE(tree_insert(root, items[order[i]]));
        }
        rb_erase(&items[gone].node, &root);
        std::vector<uint32_t> left;
        for (uint32_t i = 0; i < count; ++i) {
          if (i != gone) left.push_back(i);
        }
        ASSERT_GE(black_height(root.node, nullptr), 0);
        ASSERT_EQ(keys_forward(root), left);
      }
    } while (count <= 6 && std::next_permutation(order.begin(), order.end()));
  }
}

TEST(rbtree, million_random_operations_keep_rules_and_order) {
  std::vector<item> items(2000);
  std::set<uint32_t> expected;
  rb_root root = {};
  std::mt19937 random(7);
  for (uint32_t i = 0; i < items.size(); ++i) items[i].key = i;

  for (int step = 0; step < 1000000; ++step) {
    // Waves: the tree fills for a while, then empties.
    const bool filling = step / 20000 % 2 == 0;
    item& one = items[random() % items.size()];
    const bool present = expected.count(one.key) != 0;
    if (!present && (filling || random() % 4 == 0)) {
      ASSERT_TRUE(tree_insert(root, one));
      expected.insert(one.key);
    } else if (present && (!filling || random() % 4 == 0)) {
      rb_erase(&one.node, &root);
      expected.erase(one.key);
    } else {
      item duplicate = {{}, one.key};
      if (present) {
        ASSERT_FALSE(tree_insert(root, duplicate));
      }
    }
    if (step % 1000 != 0) continue;
    ASSERT_GE(black_height(root.node, nullptr), 0) << "step " << step;
    ASSERT_EQ(keys_forward(root), std::vector<uint32_t>(expected.begin(), expected.end())) << "step " << step;
    ASSERT_EQ(keys_backward(root), std::vector<uint32_t>(expected.rbegin(), expected.rend())) << "step " << step;
  }
}

TEST(rbtree, replacement_takes_over_any_place) {
  for (uint32_t replaced = 0; replaced < 15; ++replaced) {
    std::vector<item> items(15);
    rb_root root = {};
    for (uint32_t i = 0; i < 15; ++i) {
      items[i].key = i * 10;
      ASSERT_TRUE(tree_insert(root, items[i]));
    }
    item fresh = {{}, replaced * 10 + 1};
    rb_replace_node(&items[replaced].node, &fresh.node, &root);
    items[replaced].node = {};
    ASSERT_GE(black_height(root.node, nullptr), 0) << replaced;
    const std::vector<uint32_t> keys = keys_forward(root);
    ASSERT_EQ(keys.size(), 15U);
    EXPECT_EQ(keys[replaced], replaced * 10 + 1);
    EXPECT_EQ(keys_backward(root).size(), 15U);
  }
}

} // namespace
