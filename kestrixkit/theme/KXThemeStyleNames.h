#pragma once

#include <QLatin1StringView>

// Names under which the framework's views ask the theme for styles and images. A host's theme answers each with a
// QVariantMap of key paths and values, KXTheme::setValueForKey(name, style), or not at all.

// Rows of the source list, and the badges with counts in them
inline constexpr QLatin1StringView KXSourceListRowStyles { "sourceListRowStyles" };
inline constexpr QLatin1StringView KXSourceListGroupRowStyles { "sourceListGroupRowStyles" };
inline constexpr QLatin1StringView KXSourceListBadgeStyles { "sourceListBadgeStyles" };
inline constexpr QLatin1StringView KXSourceListSelectedBadgeStyles { "sourceListSelectedBadgeStyles" };

// Badges of presets and facet values
inline constexpr QLatin1StringView KXFilterBadgeStyles { "filterBadgeStyles" };
inline constexpr QLatin1StringView KXFilterSelectedBadgeStyles { "filterSelectedBadgeStyles" };

// Filter bar
inline constexpr QLatin1StringView KXFilterBarFilterLabelStyles { "filterBarFilterLabelStyles" };
inline constexpr QLatin1StringView KXFilterBarFilterButtonStyles { "filterBarFilterButtonStyles" };
inline constexpr QLatin1StringView KXPlaceholderStyles { "placeholderStyles" };

// Presets bar. The third names an image, by key path; the manager's button is on while the manager is shown.
inline constexpr QLatin1StringView KXFilterPresetsBarButtonStyles { "filterPresetsBarButtonStyles" };
inline constexpr QLatin1StringView KXFilterPresetsBarFolderButtonStyles { "filterPresetsBarFolderButtonStyles" };
inline constexpr QLatin1StringView KXFilterPresetsBarOverflowButtonImage {
    "filterPresetsBarOverflowButtonStyles.image"
};
inline constexpr QLatin1StringView KXFilterPresetsManagerOnButtonStyles { "filterPresetsManagerOnButtonStyles" };
inline constexpr QLatin1StringView KXFilterPresetsManagerOffButtonStyles { "filterPresetsManagerOffButtonStyles" };

// Images of presets, by key path
inline constexpr QLatin1StringView KXFilterPresetFolderIcon { "filterPresetIcons.folder" };
inline constexpr QLatin1StringView KXFilterPresetIcon { "filterPresetIcons.preset" };

// Properties with a button to edit them, which has a style of its own meanwhile
inline constexpr QLatin1StringView KXPropertyLabelStyles { "propertyLabelStyles" };
inline constexpr QLatin1StringView KXPropertyEditButtonStyles { "propertyEditButtonStyles" };
inline constexpr QLatin1StringView KXPropertyEditButtonActiveStyles { "propertyEditButtonActiveStyles" };

// Navigation bar; the last names a drawing routine (KXDrawBlock).
inline constexpr QLatin1StringView KXNavigationBarButtonStyles { "navigationBarButtonStyles" };
inline constexpr QLatin1StringView KXNavigationBarButtonActiveStyles { "navigationBarButtonActiveStyles" };
inline constexpr QLatin1StringView KXNavigationBarBackgroundDrawBlock { "navigationBarBackgroundDrawBlock" };

// The built-in themes' own, for whatever controls a host makes (theme/controls): each names the class that it is for.
inline constexpr QLatin1StringView KXButtonStyles { "buttonStyles" };
inline constexpr QLatin1StringView KXDefaultButtonStyles { "defaultButtonStyles" };
inline constexpr QLatin1StringView KXToolbarButtonStyles { "toolbarButtonStyles" };
inline constexpr QLatin1StringView KXPopUpButtonStyles { "popUpButtonStyles" };
inline constexpr QLatin1StringView KXSegmentedControlStyles { "segmentedControlStyles" };
inline constexpr QLatin1StringView KXTextFieldStyles { "textFieldStyles" };
inline constexpr QLatin1StringView KXLabelStyles { "labelStyles" };
inline constexpr QLatin1StringView KXSecondaryLabelStyles { "secondaryLabelStyles" };
inline constexpr QLatin1StringView KXTableStyles { "tableStyles" };
inline constexpr QLatin1StringView KXTableHeaderStyles { "tableHeaderStyles" };
inline constexpr QLatin1StringView KXOutlineStyles { "outlineStyles" };
inline constexpr QLatin1StringView KXScrollViewStyles { "scrollViewStyles" };
inline constexpr QLatin1StringView KXScrollerStyles { "scrollerStyles" };
inline constexpr QLatin1StringView KXSplitViewStyles { "splitViewStyles" };
inline constexpr QLatin1StringView KXProgressIndicatorStyles { "progressIndicatorStyles" };
inline constexpr QLatin1StringView KXSpinningProgressIndicatorStyles { "spinningProgressIndicatorStyles" };
inline constexpr QLatin1StringView KXStarRatingStyles { "starRatingStyles" };
inline constexpr QLatin1StringView KXPopoverStyles { "popoverStyles" };
inline constexpr QLatin1StringView KXToolbarStyles { "toolbarStyles" };
inline constexpr QLatin1StringView KXStatusBarStyles { "statusBarStyles" };
