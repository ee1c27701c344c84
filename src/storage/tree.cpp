// Ordered tree: an intrusive, height-balanced (AVL) binary search tree.
//
// The tree owns no memory. A record is in a tree by having an avl node as
// its first member; the node's key points to the record's name. The order of
// two nodes is the tree's cmp function, always called with the node already
// in the tree first and the probe second. Recursion is bounded by the height
// of the tree (about 1.44 log2 of the node count).
#include "storage/tree.h"

#include "diag/diag.h"

// Order of a tree node against a probe.
static int order(avl_tree *tree, avl *in_tree, avl *probe)
{
    return tree->cmp(in_tree, probe);
}

// ---- Rotations ---------------------------------------------------------

// Lifts the right child of *pp into its place.
static void rotate_left(avl **pp)
{
    avl *p = *pp;
    avl *r = p->right;
    p->right = r->left;
    r->left = p;
    *pp = r;
}

// Lifts the left child of *pp into its place.
static void rotate_right(avl **pp)
{
    avl *p = *pp;
    avl *l = p->left;
    p->left = l->right;
    l->right = p;
    *pp = l;
}

// Balance fix-up after a double rotation: sets the balances of the new
// subtree root's children from the root's balance before the rotation, then
// clears the root's.
static void avl_nasty(avl *root)
{
    switch (root->balance) {
    case 1:
        root->left->balance = -1;
        root->right->balance = 0;
        break;
    case -1:
        root->left->balance = 0;
        root->right->balance = 1;
        break;
    default:
        root->left->balance = 0;
        root->right->balance = 0;
        break;
    }
    root->balance = 0;
}

// Repairs a subtree whose root reached +2. Returns 1 when the subtree's
// height went down by the repair, 0 when a single rotation around a balanced
// child left it unchanged.
static int fix_right_heavy(avl **pp)
{
    avl *p = *pp;
    avl *r = p->right;
    if (r->balance >= 0) {
        rotate_left(pp);
        if (r->balance == 0) {
            p->balance = 1;
            r->balance = -1;
            return 0;
        }
        p->balance = 0;
        r->balance = 0;
        return 1;
    }
    rotate_right(&p->right);
    rotate_left(pp);
    avl_nasty(*pp);
    return 1;
}

// Mirror of fix_right_heavy for a root at -2.
static int fix_left_heavy(avl **pp)
{
    avl *p = *pp;
    avl *l = p->left;
    if (l->balance <= 0) {
        rotate_right(pp);
        if (l->balance == 0) {
            p->balance = -1;
            l->balance = 1;
            return 0;
        }
        p->balance = 0;
        l->balance = 0;
        return 1;
    }
    rotate_left(&p->left);
    rotate_right(pp);
    avl_nasty(*pp);
    return 1;
}

// ---- Search ------------------------------------------------------------

// The node equal to probe in the subtree p, or null.
static avl *search(avl_tree *tree, avl *p, avl *probe)
{
    while (p) {
        int c = order(tree, p, probe);
        if (c == 0)
            return p;
        p = c > 0 ? p->left : p->right;
    }
    return nullptr;
}

avl *AVL_search(avl_tree *tree, const char *key)
{
    X_TRACE("AVL_search key: [%s] ", key ? key : "");
    if (!tree || !tree->root || !key)
        return nullptr;
    avl probe{};
    probe.key = const_cast<char *>(key);
    return search(tree, tree->root, &probe);
}

// ---- Insert ------------------------------------------------------------

// Links node into the subtree *pp. Returns 1 when the subtree grew.
static int insert(avl_tree *tree, avl **pp, avl *node)
{
    avl *p = *pp;
    if (!p) {
        *pp = node;
        return 1;
    }
    if (order(tree, p, node) > 0) {
        if (!insert(tree, &p->left, node))
            return 0;
        if (--p->balance == -2) {
            fix_left_heavy(pp);
            return 0;
        }
    } else {
        if (!insert(tree, &p->right, node))
            return 0;
        if (++p->balance == 2) {
            fix_right_heavy(pp);
            return 0;
        }
    }
    return p->balance != 0;
}

unsigned long AVL_generation;

int AVL_insert(avl_tree *tree, avl *node)
{
    const char *key = node ? static_cast<const char *>(node->key) : nullptr;
    X_TRACE("AVL_insert key: [%s] ", key ? key : "");
    if (!tree || !node || !key || AVL_search(tree, key))
        return -1;
    node->left = nullptr;
    node->right = nullptr;
    node->balance = 0;
    insert(tree, &tree->root, node);
    AVL_generation++;
    return 0;
}

// ---- Remove ------------------------------------------------------------

// The left side of *pp shrank: adjusts and repairs. Returns 1 when the
// subtree shrank as a whole.
static int left_shrank(avl **pp)
{
    avl *p = *pp;
    if (++p->balance == 2)
        return fix_right_heavy(pp);
    return p->balance == 0;
}

// The right side of *pp shrank.
static int right_shrank(avl **pp)
{
    avl *p = *pp;
    if (--p->balance == -2)
        return fix_left_heavy(pp);
    return p->balance == 0;
}

static int remove_node(avl_tree *tree, avl **pp, avl *node);

// Removes *pp itself, which is node. A node with two children is replaced
// by its in-order successor when it leans right or is balanced, else by its
// predecessor, so that the side losing a node is never the short one and no
// rotation happens at this level. Returns 1 when the subtree shrank.
static int remove_root(avl_tree *tree, avl **pp)
{
    avl *p = *pp;
    if (!p->left) {
        *pp = p->right;
        return 1;
    }
    if (!p->right) {
        *pp = p->left;
        return 1;
    }
    avl *repl;
    if (p->balance >= 0) {
        for (repl = p->right; repl->left; repl = repl->left) {}
    } else {
        for (repl = p->left; repl->right; repl = repl->right) {}
    }
    int shrank = remove_node(tree, pp, repl);
    repl->left = p->left;
    repl->right = p->right;
    repl->balance = p->balance;
    *pp = repl;
    return shrank;
}

// Unlinks node from the subtree *pp. Returns 1 when the subtree shrank.
static int remove_node(avl_tree *tree, avl **pp, avl *node)
{
    avl *p = *pp;
    if (!p)
        return 0;
    if (p == node)
        return remove_root(tree, pp);
    if (order(tree, p, node) >= 0)
        return remove_node(tree, &p->left, node) ? left_shrank(pp) : 0;
    return remove_node(tree, &p->right, node) ? right_shrank(pp) : 0;
}

int AVL_remove(avl_tree *tree, const char *key)
{
    X_TRACE("AVL_remove key: [%s] ", key ? key : "");
    avl *node = AVL_search(tree, key);
    if (!node)  // empty tree or absent key
        return -1;
    remove_node(tree, &tree->root, node);
    AVL_generation++;
    return 0;
}
