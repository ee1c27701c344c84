// Ordered tree: an intrusive AVL tree of named records.
#pragma once

#include "x.h"

int AVL_insert(avl_tree *tree, avl *node);
avl *AVL_search(avl_tree *tree, const char *key);
int AVL_remove(avl_tree *tree, const char *key);
