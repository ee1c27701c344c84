// Ordered tree: an intrusive AVL tree of named records.
#pragma once

#include "x.h"

int AVL_insert(avl_tree *tree, avl *node);
// Changes with every successful insert and removal in any tree, so that a
// record found once can be trusted for as long as it stays the same.
extern unsigned long AVL_generation;
avl *AVL_search(avl_tree *tree, const char *key);
int AVL_remove(avl_tree *tree, const char *key);
